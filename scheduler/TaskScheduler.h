#pragma once

#include "communication/SchedulerClientCommunManager.h"
#include "communication/SchedulerServerManager.h"
#include "firing/TriggerFireManager.h"
#include "framework/CommunProducerConsumerManager.h"
#include "platform/HeapTrimmer.h"
#include "platform/SignalStack.h"
#include "scheduler/MetricsTextfile.h"
#include "store/RunStateStore.h"
#include "store/SchedulerDataStoreManager.h"

#include <QObject>

// The composition root: owns every manager and initialises, starts, stops and
// releases them in fixed orders.
class TaskScheduler : public QObject {
    Q_OBJECT
public:
    explicit TaskScheduler(QObject* parent = nullptr);
    ~TaskScheduler() override;

    bool Init(const QString& appDir);
    bool Start();
    void Stop();
    void UnInit();
    bool TriggerEvent(quint64 code);

    // The line of the first failure of Init or Start, for systemd's status;
    // empty while none failed.
    QString getFailure() const;
    quint16 commandServerPort() const { return m_serverManager.serverPort(); }
    // One line for systemd: how many plans there are and which runs next.
    QString StatusLine() const;
    // The schedule health as the metrics file shows it.
    QByteArray MetricsText(bool up) const;

Q_SIGNALS:
    void statusChanged(QString line);

private Q_SLOTS:
    void onClientRequestCommandResult(QByteArray blocks);

private:
    void ConnectAgentServer();
    void OpenRunState(const QString& appDir);
    bool Check(bool ok, const char* failure);

    SchedulerDataStoreManager m_dataStoreManager;
    TriggerFireManager m_triggerFireManager;
    CommunProducerConsumerManager m_producerConsumerManager{&SignalStack::EnsureForCurrentThread};
    SchedulerClientCommunManager m_clientManager;
    SchedulerServerManager m_serverManager;
    RunStateStore m_runState;
    HeapTrimmer m_heapTrimmer;
    MetricsTextfile m_metrics;
    qint64 m_startMSecs = 0;
    QString m_failure;
};
