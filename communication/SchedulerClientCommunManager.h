#pragma once

#include "framework/ClientCommunManager.h"
#include "framework/CommunClientWork.h"
#include "platform/ServiceThread.h"

class RunStateRecorder;

// The client link to the agent: trigger-info commands (601) go through the
// refresh worker, every other command through the control worker, each on its
// own thread; the agent's replies come back as dealCommandResult.
class SchedulerClientCommunManager : public ClientCommunManager {
    Q_OBJECT
public:
    explicit SchedulerClientCommunManager(QObject* parent = nullptr);
    ~SchedulerClientCommunManager() override;

    bool Init() override;
    void UnInit() override;
    bool Start() override;
    void Stop() override;
    void SetCommunAttribute(const CommunAttribute& attribute) override;
    // Where the runs the link folded together are recorded; before Init.
    void SetRunState(RunStateRecorder* runState) { m_runState = runState; }
    // Safe from any thread. Runs go through the control link, so its state is
    // the agent's.
    bool AgentConnected() const { return m_controlClientWork.Connected(); }
    quint64 FramesWaiting() const {
        return m_refreshClientWork.FramesWaiting() + m_controlClientWork.FramesWaiting();
    }

Q_SIGNALS:
    void refreshRequestCommand(QByteArray blocks);
    void controlRequestCommand(QByteArray blocks);
    void dealCommandResult(QByteArray blocks);

public Q_SLOTS:
    void onRequestCommand(CommCommand* command) override;

private:
    void Wire(CommunClientWork& work, void (SchedulerClientCommunManager::*request)(QByteArray));
    void RecordMerged(const QString& planUuid, const QString& mergedDue, const QString& keptDue, int count);

    ServiceThread m_refreshThread{"agent-refresh"};
    CommunClientWork m_refreshClientWork;
    ServiceThread m_controlThread{"agent-control"};
    CommunClientWork m_controlClientWork;
    RunStateRecorder* m_runState = nullptr;
};
