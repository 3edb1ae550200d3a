#include "LogCapture.h"

#include "framework/Logger.h"

#include <log4cpp/Category.hh>
#include <log4cpp/Layout.hh>

LogCapture::LogCapture() : log4cpp::AppenderSkeleton("capture") {
    Logger::GetFileLogHandle().addAppender(*this);
}

LogCapture::~LogCapture() {
    // removeAppender also deletes the appender when the category owns it; it
    // does not own this one.
    Logger::GetFileLogHandle().removeAppender(this);
}

void LogCapture::setLayout(log4cpp::Layout* layout) {
    delete layout;
}

void LogCapture::_append(const log4cpp::LoggingEvent& event) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back({event.priority, QString::fromStdString(event.message)});
}

std::vector<LogCapture::Line> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

QStringList LogCapture::Messages() const {
    QStringList messages;
    for (const Line& line : Lines()) {
        messages << line.message;
    }
    return messages;
}

int LogCapture::Count(const QString& message) const {
    return Messages().count(message);
}

int LogCapture::CountContaining(const QString& part) const {
    int count = 0;
    for (const QString& message : Messages()) {
        count += message.contains(part) ? 1 : 0;
    }
    return count;
}

bool LogCapture::Has(int priority, const QString& message) const {
    for (const Line& line : Lines()) {
        if (line.priority == priority && line.message == message) {
            return true;
        }
    }
    return false;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}
