#pragma once

#include "CommunAttribute.h"
#include "FrameReader.h"
#include "PendingFrames.h"
#include "UnansweredRuns.h"

#include <QByteArray>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QVector>

#include <atomic>

class QTcpSocket;
class QTimer;

// One connection to the agent, living on its own thread. It connects on the
// first request or reconnect request, reconnects with a growing delay, keeps
// frames that cannot go out yet in a bounded buffer (per plan only the newest
// run and the newest trigger-info), and emits every frame it receives with
// returnResult. A run written to the agent but not answered when the link
// drops goes out again, per plan the newest, once the agent is back.
class CommunClientWork : public QObject {
    Q_OBJECT
public:
    static constexpr size_t kBufferLimit = 1000;
    static constexpr int kFirstRetryMSecs = 1000;
    static constexpr int kLastRetryMSecs = 5000;
    // How long sent frames wait for the posting thread to free them.
    static constexpr int kSpentHoldMSecs = 100;

    explicit CommunClientWork(QObject* parent = nullptr);
    ~CommunClientWork() override;

    bool Init();
    void UnInit();
    void SetCommunAttribute(const CommunAttribute& attribute);
    // Hands a frame to the worker from any thread. Frames handed while the
    // worker is busy go over in one batch, in the order they were handed:
    // thousands of trigger-info reports at start-up cost one wake-up of the
    // worker's thread, not one each.
    void Post(const QByteArray& blocks);
    // How long the worker lets frames gather after the first of a batch before
    // it takes them; 0 takes them at the next turn of its event loop. Set
    // before the worker's thread starts.
    void setGatherMSecs(int msecs) { m_gatherMSecs = msecs; }
    // Safe from any thread: whether the link is connected now, and how many
    // frames wait for it.
    bool Connected() const { return m_connected.load(std::memory_order_relaxed); }
    size_t FramesWaiting() const { return m_framesWaiting.load(std::memory_order_relaxed); }

Q_SIGNALS:
    void returnResult(QByteArray blocks);
    // A run waiting for the agent replaced an older run of the same plan:
    // `mergedDue` will not run, `keptDue` runs for it and `count` earlier starts.
    // Emitted on the worker's thread.
    void runsMerged(QString planUuid, QString mergedDue, QString keptDue, int count);

public Q_SLOTS:
    void onreconnectServer();
    void onRequestData(QByteArray blocks);

private:
    void ScheduleDrain();
    void DrainInbox();
    void ReturnSpent(QVector<QByteArray>& batch);
    void FreeSpent();
    void EnsureSocket();
    void Connect();
    void Flush();
    void Buffer(const QByteArray& blocks);
    void Write(const QByteArray& frame, const QByteArray& blocks);
    void KeepUnanswered();
    void ScheduleRetry();
    void onConnected();
    void onDisconnected();
    void onReadyRead();
    void onThreadFinished();
    void ReleaseConnection();
    void Endpoint(QString& name, quint16& port) const;
    QString Destination() const;
    void PublishState();

    mutable QMutex m_attributeMutex;
    CommunAttribute m_attribute;

    // Touched only on the worker's thread.
    QTcpSocket* m_socket = nullptr;
    QTimer* m_retryTimer = nullptr;
    int m_retryMSecs = kFirstRetryMSecs;
    bool m_reportedFailure = false;
    quint64 m_dropped = 0;
    FrameReader m_reader;
    PendingFrames m_pending{kBufferLimit};
    UnansweredRuns m_unanswered;
    // Plans whose waiting runs were merged during this outage, named once each.
    QSet<QString> m_mergedPlans;
    std::atomic<bool> m_releasedOnThread{false};
    std::atomic<bool> m_connected{false};
    std::atomic<size_t> m_framesWaiting{0};

    QMutex m_inboxMutex;
    QVector<QByteArray> m_inbox;
    // Frames sent, kept for the posting thread to free with its next frame.
    QVector<QByteArray> m_spent;
    // Touched only on the worker's thread: a freeing of what the posting
    // thread leaves is on its way.
    bool m_spentFreeing = false;
    int m_gatherMSecs = 0;
};
