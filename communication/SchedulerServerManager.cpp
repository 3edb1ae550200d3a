#include "SchedulerServerManager.h"

#include "framework/CommandBuilder.h"
#include "framework/CommunProducerConsumerManager.h"
#include "framework/ConfigReader.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/ResultCommand.h"
#include "framework/SocketCommandPackage.h"
#include "framework/WireFormat.h"

#include <unistd.h>

// A request still waiting for the handler when the dealing thread ends is not
// answered; it is freed with the manager.
namespace {
// A client that sends nothing for a minute, or stalls inside a frame for ten
// seconds, gives up its connection.
constexpr qint64 kIdleMSecs = 60000;
constexpr qint64 kPartialFrameMSecs = 10000;
} // namespace

SchedulerServerManager::SchedulerServerManager(QObject* parent)
    : QObject(parent), m_toHandler(&m_commandDealwith, [this](std::unique_ptr<SocketCommandPackage> package) {
          m_commandDealwith.onDealQueuePackageCommand(std::move(package));
      }) {}

SchedulerServerManager::~SchedulerServerManager() {
    Stop();
}

bool SchedulerServerManager::Init() {
    return m_communServer.Init(ProtocolTypes::kTcp);
}

bool SchedulerServerManager::Start() {
    if (m_dealThread.isRunning()) {
        return true;
    }
    connect(&m_communServer, &CommunServer::incomingBlockData, this,
            &SchedulerServerManager::onProducerPackageCommand,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    connect(&m_commandDealwith, &SchedulerServerCommandDealwith::dealCommandResult, this,
            &SchedulerServerManager::onDealCommandResult,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    QStringList problems;
    m_accessPolicy = PeerAccessPolicy::FromConfig(::getegid(), &problems);
    for (const QString& problem : problems) {
        Logger::Warn(problem);
    }
    m_communServer.setAccessCheck(
        [this](const PeerCredentials& peer) { return m_accessPolicy.Admits(peer); });
    m_communServer.setLimits({ConfigReader::getMaxClients(), kIdleMSecs, kPartialFrameMSecs});
    if (!m_communServer.Start(ConfigReader::getSchedulerLocalServerName(),
                              ConfigReader::getSchedulerPort())) {
        return false;
    }
    // With SchedulerPort=0 the system chose the port; this line is the only
    // place a client (or a test) can learn it.
    Logger::Info(QString("The command server listens on %1:%2.")
                     .arg(m_communServer.serverAddress())
                     .arg(m_communServer.serverPort()));
    m_commandDealwith.moveToThread(&m_dealThread);
    m_dealThread.start(QThread::InheritPriority);
    return true;
}

void SchedulerServerManager::Stop() {
    m_communServer.Stop();
    m_dealThread.quit();
    m_dealThread.wait();
}

void SchedulerServerManager::UnInit() {
    m_communServer.UnInit();
}

void SchedulerServerManager::onProducerPackageCommand(quint64 commtype, quint64 connectionId,
                                                      QByteArray bytes) {
    if (bytes.isEmpty()) {
        return;
    }
    if (commtype != CommTypes::kServerRequest) {
        Logger::Error("Comm type error in the onProducerPackageCommand.");
        return;
    }
    std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
    if (command && !Admit(connectionId, *command)) {
        Refuse(connectionId, *command);
        return;
    }
    if (!CommunProducerConsumerManager::RequestCommunCommand(std::move(command), connectionId, commtype,
                                                             PackageTypes::kServerRequest)) {
        Logger::Error("Push server request comm command failed in the onProducerPackageCommand.");
    }
}

bool SchedulerServerManager::Admit(quint64 connectionId, const CommCommand& command) {
    const PeerCredentials peer = m_communServer.Peer(connectionId);
    const quint64 type = command.getCommandType();
    if (m_communServer.IsAdmitted(connectionId)) {
        if (type == CommandTypes::kNewPlan || type == CommandTypes::kDeletePlan ||
            type == CommandTypes::kModifyPlan) {
            Logger::Info(QString("Plan command %1 for plan %2 from %3 accepted.")
                             .arg(type)
                             .arg(LogText::Outside(command.getPlanUuid()), peer.Describe()));
        }
        return true;
    }
    if (m_communServer.FirstRefusal(connectionId)) {
        Logger::Warn(QString("Refused command %1 from %2, which is not in AllowedUsers or AllowedGroups; "
                             "its further commands on this connection are refused without a line.")
                         .arg(type)
                         .arg(peer.Describe()));
    }
    return false;
}

// A refused command changes nothing and is answered at once with result 1.
void SchedulerServerManager::Refuse(quint64 connectionId, const CommCommand& command) {
    ResultCommand result;
    result.GetRequestCommandInfo(command);
    result.setUintResult(1);
    m_communServer.SendResult(connectionId, CommandBuilder::CommandToBytearray(&result));
}

void SchedulerServerManager::onDealQueuePackageCommand(std::unique_ptr<SocketCommandPackage> ppackage) {
    if (!ppackage) {
        Logger::Warn("Server Socket command package pointer is NULL in the onDealQueuePackageCommand.");
        return;
    }
    if (ppackage->getCommand() == nullptr) {
        Logger::Error("Server command pointer is NULL in the onDealQueuePackageCommand.");
        return;
    }
    m_toHandler.Post(std::move(ppackage));
}

void SchedulerServerManager::onDealCommandResult(quint64 connectionId, QString trace, QByteArray reply) {
    Logger::Info(
        QString("Server send result command%1 reach SchedulerServerManager in the onDealCommandResult.")
            .arg(LogText::Outside(trace), 0));
    m_communServer.SendResult(connectionId, reply);
}
