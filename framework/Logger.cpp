#include "Logger.h"

#include "JournalLayout.h"
#include "LogText.h"
#include "RollingLogFile.h"

#include <QDir>

#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>

#include <cstdlib>
#include <iostream>

namespace {
// Short enough for the standard string's own room: log4cpp copies the name
// into every event.
constexpr const char* kCategoryName = "scheduler";
// Owned by the category; set and cleared with the appenders, on the thread
// that initialises the log.
RollingLogFile* g_file = nullptr;

log4cpp::Category& Category() {
    static log4cpp::Category& category = []() -> log4cpp::Category& {
        log4cpp::Category& c = log4cpp::Category::getInstance(kCategoryName);
        c.setAdditivity(false);
        c.setPriority(log4cpp::Priority::DEBUG);
        return c;
    }();
    return category;
}

// Lines are nearly always printable ASCII, which needs neither escaping nor a
// UTF-8 encoding pass: one look at each character settles both.
std::string StandardText(const QString& line) {
    std::string out(static_cast<size_t>(line.size()), '\0');
    const QChar* in = line.constData();
    for (int i = 0; i < line.size(); ++i) {
        const ushort code = in[i].unicode();
        if (code < 0x20 || code >= 0x7f) {
            return LogText::OneLine(line).toStdString();
        }
        out[static_cast<size_t>(i)] = static_cast<char>(code);
    }
    return out;
}

// Under systemd the journal reads standard error; each line then carries its
// level as a "<N>" prefix.
void AddJournalAppender(log4cpp::Category& category) {
    if (qEnvironmentVariableIsEmpty("JOURNAL_STREAM")) {
        return;
    }
    auto* appender = new log4cpp::OstreamAppender("journal", &std::cerr);
    appender->setLayout(new JournalLayout());
    category.addAppender(appender);
}
} // namespace

bool Logger::Initialize(const QString& appDir, const QString& logDir, const QString& fileName,
                        quint64 maxFileMiB, quint64 maxFiles) {
    const QString dirPath = QString("%1%2").arg(appDir, logDir);
    if (!QDir().mkpath(dirPath)) {
        return false;
    }
    const QString filePath = QString("%1/%2").arg(dirPath, fileName);
    log4cpp::Category& category = Category();
    UnInitialize();
    auto* file = new RollingLogFile(filePath.toStdString(), static_cast<size_t>(maxFileMiB) * 1024 * 1024,
                                    static_cast<unsigned int>(maxFiles));
    if (!file->isOpen()) {
        delete file;
        return false;
    }
    g_file = file;
    category.addAppender(file);
    AddJournalAppender(category);
    return true;
}

void Logger::UnInitialize() {
    g_file = nullptr;
    Category().removeAllAppenders();
}

void Logger::Banner(const QStringList& lines) {
    if (g_file != nullptr) {
        g_file->recordBanner(true);
    }
    for (const QString& line : lines) {
        Info(line);
    }
    if (g_file != nullptr) {
        g_file->recordBanner(false);
    }
}

void Logger::Flush() {
    if (g_file != nullptr) {
        g_file->flush();
    }
}

log4cpp::Category& Logger::GetFileLogHandle() {
    return Category();
}

void Logger::Debug(const QString& line) {
    Category().debug(StandardText(line));
}

void Logger::Info(const QString& line) {
    Category().info(StandardText(line));
}

void Logger::Warn(const QString& line) {
    Category().warn(StandardText(line));
}

void Logger::Error(const QString& line) {
    Category().error(StandardText(line));
}
