#pragma once

#include <log4cpp/AppenderSkeleton.hh>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// The log file: each line formatted once into a memory buffer and written in
// blocks. A line at warn level or above is written out at once, every other
// within kFlushDelayMSecs, so the file never trails the service by more than
// that. When the file would pass its size limit it is rolled (name.1 the
// newest of the older files) and the new file begins with the banner lines.
//
// Format: "yyyy-MM-dd hh:mm:ss.zzz [thread] LEVEL message", local time.
class RollingLogFile : public log4cpp::AppenderSkeleton {
public:
    static constexpr int kFlushDelayMSecs = 100;
    static constexpr size_t kBlockBytes = 64 * 1024;

    // `maxFiles` counts the current file and the rolled ones (at least 1).
    RollingLogFile(const std::string& path, size_t maxFileBytes, unsigned int maxFiles);
    ~RollingLogFile() override;

    bool isOpen() const { return m_fd >= 0; }
    // While on, the lines appended are kept as the banner, written again at
    // the top of every new file.
    void recordBanner(bool on);
    void flush();

    bool reopen() override;
    void close() override;
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* layout) override;

protected:
    void _append(const log4cpp::LoggingEvent& event) override;

private:
    void FormatLine(const log4cpp::LoggingEvent& event);
    void WriteBufferLocked();
    void RollLocked();
    void OpenLocked();
    void RunFlusher();

    const std::string m_path;
    const size_t m_maxFileBytes;
    const unsigned int m_maxFiles;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    int m_fd = -1;
    size_t m_fileBytes = 0;
    std::string m_buffer;
    std::vector<std::string> m_banner;
    bool m_recordingBanner = false;
    // The formatted date and time of one second, reused for every line of it.
    long m_stampSecond = -1;
    char m_stamp[24] = {};
    size_t m_stampLength = 0;
    bool m_stopping = false;
    // The flusher waits for a first line rather than for its delay to pass:
    // only then is a line worth a wake-up, which costs a system call.
    bool m_flusherIdle = false;
    std::thread m_flusher;
};
