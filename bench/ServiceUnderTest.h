#pragma once

#include <QByteArray>
#include <QString>

#include <sys/types.h>

#include <atomic>

// The real service executable, copied into a folder of its own (it finds its
// configuration, database and log beside itself) and run as a child process
// that is watched only from outside: its log file and /proc.
class ServiceUnderTest {
public:
    explicit ServiceUnderTest(const QString& folder);
    ~ServiceUnderTest();
    ServiceUnderTest(const ServiceUnderTest&) = delete;
    ServiceUnderTest& operator=(const ServiceUnderTest&) = delete;

    bool Spawn(const QString& executable);
    // Wall-clock milliseconds since the epoch at the moment of the spawn.
    qint64 SpawnedAtMSecs() const { return m_spawnedAtMSecs; }
    bool HasExited();
    // Reads what the log gained since the last call (following the file
    // across rotation) for the two lines a run waits for.
    void ScanLog();
    // The time stamp (milliseconds since the epoch) of "SchedulerService
    // start success.", or -1 while it has not been logged.
    qint64 StartSuccessMSecs() const { return m_startSuccessMSecs; }
    // The port the command server reports listening on, or 0; read from any
    // thread.
    quint16 CommandPort() const { return m_commandPort; }
    // CPU time of every thread of the process, in nanoseconds.
    qint64 CpuNanos() const;
    // CPU time of the application thread alone, which the start-up's work is
    // bound by.
    qint64 MainThreadCpuNanos() const;
    qint64 ResidentBytes() const;
    // Sends SIGTERM and waits for the exit; seconds until it, or a negative
    // value when the process had to be killed after `timeoutSecs`.
    double Terminate(int timeoutSecs, int& exitCode);

private:
    qint64 TaskCpuNanos(const QString& task) const;
    QByteArray NewLogText();
    QString m_folder;
    pid_t m_pid = 0;
    qint64 m_spawnedAtMSecs = 0;
    qint64 m_logOffset = 0;
    quint64 m_logInode = 0;
    QByteArray m_logTail;
    qint64 m_startSuccessMSecs = -1;
    std::atomic<quint16> m_commandPort{0};
};
