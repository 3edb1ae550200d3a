#pragma once

#include <QByteArray>
#include <QString>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

// Writes the schedule health to a file for the node exporter's textfile
// collector, on its own thread so that neither building the text nor a slow
// disk holds up a fire. Each write goes to a temporary file in the same folder
// (whose name the collector skips) and is renamed over the old one, so a
// scrape never sees half a file.
class MetricsTextfile {
public:
    // The text to write; `up` is false only for the last write, at stop.
    using Build = std::function<QByteArray(bool up)>;

    MetricsTextfile() = default;
    ~MetricsTextfile();
    MetricsTextfile(const MetricsTextfile&) = delete;
    MetricsTextfile& operator=(const MetricsTextfile&) = delete;

    // Writes now and then every `intervalSecs`; nothing when `path` is empty.
    void Start(const QString& path, quint64 intervalSecs, Build build);
    // Ends the writes with a last one in which the service is down.
    void Stop();

private:
    void Run(quint64 intervalSecs);
    void Write(bool up);
    bool WriteFile(const QByteArray& text, int& error) const;

    QString m_path;
    Build m_build;
    std::thread m_writer;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
    // Guarded by m_writeMutex: whether the streak of failures was reported.
    std::mutex m_writeMutex;
    bool m_failing = false;
};
