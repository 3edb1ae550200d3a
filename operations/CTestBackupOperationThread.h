#pragma once

#include <QMutex>
#include <QString>
#include <QThread>

#include <atomic>

// Simulates a backup of a given number of minutes.
class CTestBackupOperationThread : public QThread {
    Q_OBJECT
public:
    CTestBackupOperationThread(const QString& name, qint64 durationMinutes);

    // Starts a run. It counts as running from here, not from when the thread
    // first gets the processor, so that a stop in between is not undone.
    void BeginRun();
    // Ends the run within about one pass of its loop (10 ms) and waits for it.
    void StopRun();
    bool IsFinished();
    quint64 getElapsed() const { return m_elapsed; }
    void setElapsed(quint64 value) { m_elapsed = value; }
    quint64 getTotal() const { return m_total; }

protected:
    void run() override;

private:
    void SetFinished(bool finished);

    QString m_name;
    quint64 m_durationMinutes;
    // Written by the run and read by progress queries without a lock.
    std::atomic<quint64> m_total{100};
    std::atomic<quint64> m_elapsed{0};
    bool m_finished = false;
    QMutex m_mutex;
};
