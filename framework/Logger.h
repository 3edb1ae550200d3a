#pragma once

#include <QString>
#include <QStringList>

namespace log4cpp {
class Category;
}

// The service's log: one log4cpp category written to a rolling file. The
// category is usable at any time; before Initialize and after UnInitialize its
// lines go nowhere (or to standard error under systemd).
class Logger {
public:
    static constexpr quint64 kDefaultMaxFileMiB = 10;
    static constexpr quint64 kDefaultMaxFiles = 5;

    // `maxFiles` counts the current file and the rolled ones.
    static bool Initialize(const QString& appDir, const QString& logDir, const QString& fileName,
                           quint64 maxFileMiB = kDefaultMaxFileMiB, quint64 maxFiles = kDefaultMaxFiles);
    static void UnInitialize();
    static log4cpp::Category& GetFileLogHandle();
    // Writes the lines at info level; every later file of the log begins with
    // them again.
    static void Banner(const QStringList& lines);
    // Writes out what is buffered; lines below warn level otherwise reach the
    // file within a tenth of a second.
    static void Flush();

    static void Debug(const QString& line);
    static void Info(const QString& line);
    static void Warn(const QString& line);
    static void Error(const QString& line);
};
