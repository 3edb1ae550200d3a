#include "TaskScheduler.h"

#include "firing/TriggerFireManagerWork.h"
#include "framework/Clock.h"
#include "framework/CommandBuilder.h"
#include "framework/ConfigReader.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/ResultCommand.h"
#include "framework/WireFormat.h"
#include "store/MetricsExposition.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

namespace {
// What the agent link is handed is what the run state records: a run when its
// execute-trigger goes to the agent, a schedule and the progress behind it
// when its trigger-info does.
// An execute-trigger carries the start it runs for; an event's carries none and
// runs for the moment it is handed.
void RecordHanded(RunStateRecorder& runState, const TriggerObject& sent, quint64 commandType) {
    const quint64 triggerType = sent.getTriggerAttribute().getTriggerType();
    if (commandType == CommandTypes::kTriggerInfo) {
        runState.RecordSchedule(sent.getPlanUuid(), triggerType, RunStateRecorder::ScheduleOf(sent));
        return;
    }
    if (commandType != CommandTypes::kExecuteTrigger) {
        return;
    }
    const qint64 nowMSecs = Clock::nowMSecsSinceEpoch();
    const QString nextStart = sent.getNextStartTime();
    const QString due =
        nextStart.isEmpty() ? LocalTime::Format(QDateTime::fromMSecsSinceEpoch(nowMSecs)) : nextStart;
    runState.RecordRun(sent.getPlanUuid(), triggerType, due, nowMSecs);
}
} // namespace

// The recorders stay set: they only record into the run state, which ignores
// records while no store is open.
TaskScheduler::TaskScheduler(QObject* parent) : QObject(parent) {
    TriggerFireManagerWork::Instance().SetHandedRecorder(
        [this](const TriggerObject& sent, quint64 commandType) {
            RecordHanded(m_runState, sent, commandType);
        });
    m_clientManager.SetRunState(&m_runState);
    m_serverManager.SetRunState(&m_runState);
    TriggerFireManager::SetRunState(&m_runState);
}

TaskScheduler::~TaskScheduler() {
    TriggerFireManagerWork::Instance().SetHandedRecorder(nullptr);
    TriggerFireManager::SetRunState(nullptr);
}

bool TaskScheduler::Check(bool ok, const char* failure) {
    if (!ok) {
        Logger::Error(failure);
        if (m_failure.isEmpty()) {
            m_failure = failure;
        }
    }
    return ok;
}

QString TaskScheduler::getFailure() const {
    const QString store = m_dataStoreManager.getFailure();
    return store.isEmpty() ? m_failure : store;
}

bool TaskScheduler::Init(const QString& appDir) {
    if (appDir.isEmpty()) {
        return false;
    }
    if (!Check(ConfigReader::IniReader(QString("%1%2").arg(appDir, "cfg/config.ini")),
               "Failed to initialize the ConfigReader.") ||
        !Check(m_dataStoreManager.Init(QString("%1%2").arg(appDir, "data/alldb.db")),
               "Failed to initialize the SchedulerDataStoreManager.") ||
        !Check(m_producerConsumerManager.Init(), "Failed to initialize the CommunProducerConsumerManager.") ||
        !Check(m_clientManager.Init(), "Failed to initialize the ClientCommunManager.")) {
        return false;
    }
    OpenRunState(appDir);
    ConnectAgentServer();
    return Check(m_serverManager.Init(), "Failed to initialize the SchedulerServerManager.") &&
           Check(m_triggerFireManager.Init(), "Failed to initialize the TriggerFireManager.");
}

// The service runs on without its run state when the state file cannot be
// used at all; the store has said why.
void TaskScheduler::OpenRunState(const QString& appDir) {
    QMutexLocker locker(SchedulerDataStoreManager::GetTriggerObjectMutex());
    const QHash<QString, TriggerObject*>* registry = SchedulerDataStoreManager::GetTriggerObjectHash();
    const auto isLive = [registry](const QString& planUuid) {
        return registry != nullptr && registry->contains(planUuid);
    };
    const bool opened = m_runState.Open(QString("%1%2").arg(appDir, "data/state.db"), isLive);
    m_dataStoreManager.AwaitFingerprints();
    if (opened && registry != nullptr) {
        const int resumed = m_runState.Resume(*registry);
        Logger::Info(QString("%1 of %2 plans resume their schedule from the run state.")
                         .arg(resumed)
                         .arg(registry->size()));
    }
    locker.unlock();
    connect(
        &m_runState, &RunStateStore::summaryChanged, this, [this] { Q_EMIT statusChanged(StatusLine()); },
        Qt::UniqueConnection);
}

QString TaskScheduler::StatusLine() const {
    qint64 plans = 0;
    {
        QMutexLocker locker(SchedulerDataStoreManager::GetTriggerObjectMutex());
        const QHash<QString, TriggerObject*>* registry = SchedulerDataStoreManager::GetTriggerObjectHash();
        plans = registry != nullptr ? registry->size() : 0;
    }
    const RunStateStore::Summary summary = m_runState.LastSummary();
    const QString count = QString("%1 plan%2").arg(plans).arg(plans == 1 ? "" : "s");
    if (summary.nextStart.isEmpty()) {
        return QString("%1; nothing scheduled").arg(count);
    }
    return QString("%1; next: %2 at %3").arg(count, summary.nextPlan, summary.nextStart);
}

void TaskScheduler::ConnectAgentServer() {
    CommunAttribute attribute;
    attribute.setProtocolType(ProtocolTypes::kTcp);
    attribute.setDestSvrNameIp(ConfigReader::getAgentLocalServerName());
    m_clientManager.ClientConnectServer(attribute);
}

bool TaskScheduler::Start() {
    // Only the command server queues packages; their receiver then owns them.
    m_producerConsumerManager.SetReceiver(PackageTypes::kServerRequest, &m_serverManager,
                                          [this](std::unique_ptr<SocketCommandPackage> package) {
                                              m_serverManager.onDealQueuePackageCommand(std::move(package));
                                          });
    connect(&m_clientManager, &SchedulerClientCommunManager::dealCommandResult, this,
            &TaskScheduler::onClientRequestCommandResult,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    const bool started =
        Check(m_dataStoreManager.Start(), "Failed to start the SchedulerDataStoreManager.") &&
        Check(m_producerConsumerManager.Start(), "Failed to start the CommunProducerConsumerManager.") &&
        Check(m_clientManager.Start(), "Failed to start the ClientCommunManager.") &&
        Check(m_serverManager.Start(), "Failed to start the SchedulerServerManager.") &&
        Check(m_triggerFireManager.Start(), "Failed to start the TriggerFireManager.");
    if (started) {
        TriggerFireManager::CatchUpDowntime(m_runState.TakeStoredRuns());
        m_startMSecs = Clock::nowMSecsSinceEpoch();
        const ConfigReader::Metrics metrics = ConfigReader::getMetrics();
        m_metrics.Start(metrics.textfilePath, metrics.intervalSecs,
                        [this](bool up) { return MetricsText(up); });
    }
    return started;
}

// The last metrics are written once nothing changes any more, while the run
// state is still open.
void TaskScheduler::Stop() {
    m_triggerFireManager.Stop();
    m_serverManager.Stop();
    m_clientManager.Stop();
    m_producerConsumerManager.Stop();
    m_dataStoreManager.Stop();
    m_metrics.Stop();
}

QByteArray TaskScheduler::MetricsText(bool up) const {
    const ConfigReader::Metrics settings = ConfigReader::getMetrics();
    MetricsExposition::Live live;
    live.up = up;
    live.startMSecs = m_startMSecs;
    live.agentConnected = m_clientManager.AgentConnected();
    live.framesWaiting = m_clientManager.FramesWaiting();
    live.unwrittenChanges = m_runState.UnwrittenChanges();
    live.planCommands = m_serverManager.PlanCommandsDealt();
    live.runs = m_runState.Tally().Take();
    const ScheduleHealth::Figures figures = m_runState.Health().Take(
        Clock::nowMSecsSinceEpoch(), static_cast<qint64>(settings.overdueAfterSecs) * 1000,
        settings.planSeriesLimit);
    return MetricsExposition::Build(figures, m_runState.WrittenAtMSecs(), live);
}

void TaskScheduler::UnInit() {
    m_triggerFireManager.UnInit();
    m_serverManager.UnInit();
    m_clientManager.UnInit();
    m_producerConsumerManager.UnInit();
    m_runState.Close();
    m_dataStoreManager.UnInit();
}

bool TaskScheduler::TriggerEvent(quint64 code) {
    if (code < 256) {
        return false;
    }
    return TriggerFireManager::FireEventTrigger(code);
}

void TaskScheduler::onClientRequestCommandResult(QByteArray blocks) {
    // A reply ends the road of each command to the agent; a burst of them
    // ends a burst of commands, whose memory is then given back.
    m_heapTrimmer.Note();
    if (blocks.isEmpty()) {
        Logger::Warn("Client request failed : return data is empty.");
        return;
    }
    CommCommand* command = CommandBuilder::BytearrayToCommand(blocks);
    if (command == nullptr) {
        Logger::Warn("Client read result command unsuccessfully.");
        return;
    }
    const QString trace = LogText::Outside(command->getTraceFlag());
    // Taken as a result command without a type test: any other command reads
    // as result 0 here.
    auto* result = dynamic_cast<ResultCommand*>(command);
    const quint64 code = result != nullptr ? result->getUintResult() : 0;
    if (result != nullptr && result->getRequestCommandType() == CommandTypes::kExecuteTrigger) {
        m_runState.RecordResult(result->getPlanUuid(), code, Clock::nowMSecsSinceEpoch());
    }
    if (code != 0) {
        Logger::Error(QString("Client requested command%1 unsuccessfully.").arg(trace, 0));
    } else {
        Logger::Info(QStringLiteral("Client request command%1 was successful.").arg(trace, 0));
    }
    CommandBuilder::DestroyCommand(command);
}
