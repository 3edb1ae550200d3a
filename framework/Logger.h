#pragma once

#include <QString>

namespace log4cpp {
class Category;
}

// The service's log: one log4cpp category written to a rolling file. The
// category is usable at any time; before Initialize and after UnInitialize its
// lines go nowhere (or to standard error under systemd).
class Logger {
public:
    static bool Initialize(const QString& appDir, const QString& logDir, const QString& fileName);
    static void UnInitialize();
    static log4cpp::Category& GetFileLogHandle();

    static void Debug(const QString& line);
    static void Info(const QString& line);
    static void Warn(const QString& line);
    static void Error(const QString& line);
};
