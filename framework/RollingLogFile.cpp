#include "RollingLogFile.h"

#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

#include <algorithm>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

RollingLogFile::RollingLogFile(const std::string& path, size_t maxFileBytes, unsigned int maxFiles)
    : log4cpp::AppenderSkeleton("file"), m_path(path), m_maxFileBytes(maxFileBytes),
      m_maxFiles(maxFiles < 1 ? 1 : maxFiles) {
    m_buffer.reserve(kBlockBytes * 2);
    std::lock_guard<std::mutex> lock(m_mutex);
    OpenLocked();
    m_flusher = std::thread([this] { RunFlusher(); });
}

RollingLogFile::~RollingLogFile() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_one();
    m_flusher.join();
    close();
}

void RollingLogFile::recordBanner(bool on) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (on) {
        m_banner.clear();
    }
    m_recordingBanner = on;
}

void RollingLogFile::setLayout(log4cpp::Layout* layout) {
    delete layout;
}

void RollingLogFile::flush() {
    std::lock_guard<std::mutex> lock(m_mutex);
    WriteBufferLocked();
}

bool RollingLogFile::reopen() {
    std::lock_guard<std::mutex> lock(m_mutex);
    WriteBufferLocked();
    if (m_fd >= 0) {
        ::close(m_fd);
    }
    OpenLocked();
    return m_fd >= 0;
}

void RollingLogFile::close() {
    std::lock_guard<std::mutex> lock(m_mutex);
    WriteBufferLocked();
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

void RollingLogFile::OpenLocked() {
    m_fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const off_t size = m_fd >= 0 ? ::lseek(m_fd, 0, SEEK_END) : 0;
    m_fileBytes = size > 0 ? static_cast<size_t>(size) : 0;
}

void RollingLogFile::_append(const log4cpp::LoggingEvent& event) {
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        wake = m_flusherIdle && m_buffer.empty();
        FormatLine(event);
        if (event.priority <= log4cpp::Priority::WARN || m_buffer.size() >= kBlockBytes) {
            WriteBufferLocked();
            wake = false;
        }
    }
    if (wake) {
        m_wake.notify_one();
    }
}

void RollingLogFile::FormatLine(const log4cpp::LoggingEvent& event) {
    const long second = event.timeStamp.getSeconds();
    if (second != m_stampSecond) {
        const time_t t = second;
        tm local = {};
        localtime_r(&t, &local);
        m_stampLength = std::strftime(m_stamp, sizeof(m_stamp), "%Y-%m-%d %H:%M:%S", &local);
        m_stampSecond = second;
    }
    const int milliseconds = event.timeStamp.getMilliSeconds() % 1000;
    const char millis[] = {'.', static_cast<char>('0' + milliseconds / 100),
                           static_cast<char>('0' + milliseconds / 10 % 10),
                           static_cast<char>('0' + milliseconds % 10), '\0'};
    const std::string& level = log4cpp::Priority::getPriorityName(event.priority);
    const size_t before = m_buffer.size();
    m_buffer.append(m_stamp, m_stampLength).append(millis, 4).append(" [", 2).append(event.threadName);
    m_buffer.append("] ", 2).append(level).append(level.size() < 5 ? 5 - level.size() : 0, ' ');
    m_buffer.append(" ", 1).append(event.message).append("\n", 1);
    if (m_recordingBanner) {
        m_banner.push_back(m_buffer.substr(before, m_buffer.size() - before - 1));
    }
    if (m_fileBytes + m_buffer.size() > m_maxFileBytes && m_fileBytes + before > 0) {
        // The new line starts the next file; what came before ends this one.
        const std::string line = m_buffer.substr(before);
        m_buffer.resize(before);
        RollLocked();
        m_buffer.append(line);
    }
}

void RollingLogFile::WriteBufferLocked() {
    size_t written = 0;
    while (m_fd >= 0 && written < m_buffer.size()) {
        const ssize_t n = ::write(m_fd, m_buffer.data() + written, m_buffer.size() - written);
        if (n <= 0) {
            break;
        }
        written += static_cast<size_t>(n);
    }
    m_fileBytes += written;
    m_buffer.clear();
}

void RollingLogFile::RollLocked() {
    WriteBufferLocked();
    if (m_fd >= 0) {
        ::close(m_fd);
    }
    const auto rolled = [this](unsigned int index) { return m_path + "." + std::to_string(index); };
    if (m_maxFiles == 1) {
        ::unlink(m_path.c_str());
    } else {
        ::unlink(rolled(m_maxFiles - 1).c_str());
        for (unsigned int index = m_maxFiles - 1; index > 1; --index) {
            ::rename(rolled(index - 1).c_str(), rolled(index).c_str());
        }
        ::rename(m_path.c_str(), rolled(1).c_str());
    }
    OpenLocked();
    for (const std::string& line : m_banner) {
        m_buffer.append(line).append("\n");
    }
}

void RollingLogFile::RunFlusher() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        m_flusherIdle = true;
        m_wake.wait(lock, [this] { return m_stopping || !m_buffer.empty(); });
        m_flusherIdle = false;
        m_wake.wait_for(lock, std::chrono::milliseconds(kFlushDelayMSecs), [this] { return m_stopping; });
        WriteBufferLocked();
    }
}
