#include "SchedulerClientCommunManager.h"

#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/WireFormat.h"
#include "store/RunStateRecorder.h"
#include "triggers/LocalTime.h"

SchedulerClientCommunManager::SchedulerClientCommunManager(QObject* parent) : ClientCommunManager(parent) {}

SchedulerClientCommunManager::~SchedulerClientCommunManager() {
    Stop();
}

bool SchedulerClientCommunManager::Init() {
    // Nobody waits for a trigger-info report, and a start-up reports every
    // plan at once: the link takes them a millisecond late, a hundred to a
    // wake-up of its thread rather than one. A run (600) goes at once.
    m_refreshClientWork.setGatherMSecs(1);
    if (!m_refreshClientWork.Init()) {
        return false;
    }
    return m_controlClientWork.Init();
}

void SchedulerClientCommunManager::UnInit() {
    m_refreshClientWork.UnInit();
    m_controlClientWork.UnInit();
}

// The replaced run's start did not run; the run that waits instead names how
// many starts it stands for. On the worker's thread.
void SchedulerClientCommunManager::RecordMerged(const QString& planUuid, const QString& mergedDue,
                                                const QString& keptDue, int count) {
    if (m_runState == nullptr) {
        return;
    }
    const qint64 merged = LocalTime::Parse(mergedDue).toMSecsSinceEpoch();
    const qint64 kept = LocalTime::Parse(keptDue).toMSecsSinceEpoch();
    m_runState->RecordOccurrence(planUuid,
                                 RunHistory::Occurrence{merged, -1, RunHistory::Outcome::Merged,
                                                        RunHistory::Reason::AgentUnreachable, 0, 0});
    m_runState->RecordOccurrence(planUuid, RunHistory::Occurrence{kept, -1, RunHistory::Outcome(0),
                                                                  RunHistory::Reason::None, 0, count});
}

void SchedulerClientCommunManager::Wire(CommunClientWork& work,
                                        void (SchedulerClientCommunManager::*request)(QByteArray)) {
    connect(this, &ClientCommunManager::toConnectServer, &work, &CommunClientWork::onreconnectServer,
            Qt::QueuedConnection);
    // Post is safe from any thread and batches the hand-over itself.
    connect(this, request, &work, &CommunClientWork::Post, Qt::DirectConnection);
    connect(&work, &CommunClientWork::returnResult, this, &SchedulerClientCommunManager::dealCommandResult,
            Qt::QueuedConnection);
    connect(&work, &CommunClientWork::runsMerged, this, &SchedulerClientCommunManager::RecordMerged,
            Qt::DirectConnection);
}

bool SchedulerClientCommunManager::Start() {
    if (m_refreshThread.isRunning()) {
        return true;
    }
    Wire(m_refreshClientWork, &SchedulerClientCommunManager::refreshRequestCommand);
    Wire(m_controlClientWork, &SchedulerClientCommunManager::controlRequestCommand);
    m_refreshClientWork.moveToThread(&m_refreshThread);
    m_refreshThread.start(QThread::InheritPriority);
    m_controlClientWork.moveToThread(&m_controlThread);
    m_controlThread.start(QThread::InheritPriority);
    return true;
}

void SchedulerClientCommunManager::Stop() {
    m_refreshThread.quit();
    m_refreshThread.wait();
    m_controlThread.quit();
    m_controlThread.wait();
}

void SchedulerClientCommunManager::SetCommunAttribute(const CommunAttribute& attribute) {
    ClientCommunManager::SetCommunAttribute(attribute);
    m_refreshClientWork.SetCommunAttribute(attribute);
    m_controlClientWork.SetCommunAttribute(attribute);
}

void SchedulerClientCommunManager::onRequestCommand(CommCommand* command) {
    if (command == nullptr) {
        Logger::Warn("The client request command into parameter pointer is null.");
        return;
    }
    const QString trace = LogText::Outside(command->getTraceFlag());
    bool differs = false;
    {
        QMutexLocker locker(&m_communAttributeMutex);
        differs = m_communAttribute != command->getObjectCommunAttribute();
    }
    if (differs) {
        Logger::Warn(
            QString("The client request plan%1 CommunAttribute does not match in the onRequestCommand.")
                .arg(trace, 0));
        return;
    }
    Logger::Info(
        QStringLiteral("The client request plan%1 reach ClientRequestCommandWork in the onRequestCommand.")
            .arg(trace, 0));
    const QByteArray bytes = CommandBuilder::CommandToBytearray(command);
    // The agent closes the link on a frame above the limit, and every command
    // queued behind it would be lost with it.
    if (static_cast<quint64>(bytes.size()) > WireFormat::kMaxFramePayload) {
        Logger::Error(
            QString("The client request plan%1 of %2 bytes is larger than a frame may be (%3 bytes) and "
                    "is not sent, in the onRequestCommand.")
                .arg(trace, 0)
                .arg(bytes.size())
                .arg(WireFormat::kMaxFramePayload));
        return;
    }
    if (command->getCommandType() == CommandTypes::kTriggerInfo) {
        Q_EMIT refreshRequestCommand(bytes);
    } else {
        Q_EMIT controlRequestCommand(bytes);
    }
}
