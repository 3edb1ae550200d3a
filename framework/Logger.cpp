#include "Logger.h"

#include "JournalLayout.h"
#include "LogText.h"

#include <QDir>

#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/RollingFileAppender.hh>

#include <cstdlib>
#include <iostream>

namespace {
constexpr const char* kCategoryName = "schedulerservice";
constexpr size_t kMaxFileSize = 10 * 1024 * 1024;
constexpr unsigned int kMaxBackups = 5;

log4cpp::Category& Category() {
    static log4cpp::Category& category = []() -> log4cpp::Category& {
        log4cpp::Category& c = log4cpp::Category::getInstance(kCategoryName);
        c.setAdditivity(false);
        c.setPriority(log4cpp::Priority::DEBUG);
        return c;
    }();
    return category;
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

bool Logger::Initialize(const QString& appDir, const QString& logDir, const QString& fileName) {
    const QString dirPath = QString("%1%2").arg(appDir, logDir);
    if (!QDir().mkpath(dirPath)) {
        return false;
    }
    const QString filePath = QString("%1/%2").arg(dirPath, fileName);
    log4cpp::Category& category = Category();
    category.removeAllAppenders();
    auto* appender = new log4cpp::RollingFileAppender("file", filePath.toStdString(), kMaxFileSize,
                                                      kMaxBackups, true, 00644);
    auto* layout = new log4cpp::PatternLayout();
    layout->setConversionPattern("%d{%Y-%m-%d %H:%M:%S.%l} [%t] %-5p %m%n");
    appender->setLayout(layout);
    category.addAppender(appender);
    AddJournalAppender(category);
    return true;
}

void Logger::UnInitialize() {
    Category().removeAllAppenders();
}

log4cpp::Category& Logger::GetFileLogHandle() {
    return Category();
}

void Logger::Debug(const QString& line) {
    Category().debug(LogText::OneLine(line).toStdString());
}

void Logger::Info(const QString& line) {
    Category().info(LogText::OneLine(line).toStdString());
}

void Logger::Warn(const QString& line) {
    Category().warn(LogText::OneLine(line).toStdString());
}

void Logger::Error(const QString& line) {
    Category().error(LogText::OneLine(line).toStdString());
}
