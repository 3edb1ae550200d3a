#include "SchedulerServerManager.h"

#include "framework/CommandBuilder.h"
#include "framework/CommunProducerConsumerManager.h"
#include "framework/ConfigReader.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/ResultCommand.h"
#include "framework/SocketCommandPackage.h"
#include "triggers/FireState.h"

#include <QIODevice>

#include <unistd.h>

namespace {
constexpr quint64 kServerRequestPackage = 3;
constexpr quint64 kClientPackage = 5;
} // namespace

SchedulerServerManager::SchedulerServerManager(QObject* parent) : QObject(parent) {}

SchedulerServerManager::~SchedulerServerManager() {
    Stop();
}

bool SchedulerServerManager::Init() {
    qRegisterMetaType<SocketCommandPackage*>("SocketCommandPackage*");
    qRegisterMetaType<ResultCommand*>("ResultCommand*");
    return m_communServer.Init(2);
}

bool SchedulerServerManager::Start() {
    if (m_dealThread.isRunning()) {
        return true;
    }
    connect(&m_communServer, &CommunServer::incomingBlockData, this,
            &SchedulerServerManager::onProducerPackageCommand,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    connect(this, &SchedulerServerManager::dealQueuePackageCommand, &m_commandDealwith,
            &SchedulerServerCommandDealwith::onDealQueuePackageCommand,
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

void SchedulerServerManager::onProducerPackageCommand(quint64 commtype, QIODevice* psocket,
                                                      QByteArray bytes) {
    if (bytes.isEmpty()) {
        return;
    }
    if (psocket == nullptr) {
        Logger::Error("Socket into parameter pointer is NULL in the onProducerPackageCommand.");
        return;
    }
    quint64 packageType = 0;
    if (commtype == CommunServer::kRequestCommType) {
        packageType = kServerRequestPackage;
    } else if (commtype == 3) {
        packageType = kClientPackage;
    } else {
        Logger::Error("Comm type error in the onProducerPackageCommand.");
        return;
    }
    CommCommand* command = CommandBuilder::BytearrayToCommand(bytes);
    if (command != nullptr && !Admit(psocket, *command)) {
        Refuse(psocket, command);
        return;
    }
    if (!CommunProducerConsumerManager::RequestCommunCommand(command, psocket, commtype, packageType)) {
        Logger::Error("Push server request comm command failed in the onProducerPackageCommand.");
        CommandBuilder::DestroyCommand(command);
    }
}

bool SchedulerServerManager::Admit(QIODevice* socket, const CommCommand& command) {
    const PeerCredentials peer = m_communServer.Peer(socket);
    const quint64 type = command.getCommandType();
    if (m_communServer.IsAdmitted(socket)) {
        if (type == CommandTypes::kNewPlan || type == CommandTypes::kDeletePlan ||
            type == CommandTypes::kModifyPlan) {
            Logger::Info(QString("Plan command %1 for plan %2 from %3 accepted.")
                             .arg(type)
                             .arg(LogText::Outside(command.getPlanUuid()), peer.Describe()));
        }
        return true;
    }
    if (m_communServer.FirstRefusal(socket)) {
        Logger::Warn(QString("Refused command %1 from %2, which is not in AllowedUsers or AllowedGroups; "
                             "its further commands on this connection are refused without a line.")
                         .arg(type)
                         .arg(peer.Describe()));
    }
    return false;
}

// A refused command changes nothing and is answered at once with result 1.
void SchedulerServerManager::Refuse(QIODevice* socket, CommCommand* command) {
    ResultCommand result;
    result.GetRequestCommandInfo(*command);
    result.setUintResult(1);
    CommandBuilder::DestroyCommand(command);
    m_communServer.SendResult(socket, CommandBuilder::CommandToBytearray(&result));
}

// The client link's slot is offered every package right after this one, so a
// package this slot refuses is released only once that offer has been made.
void SchedulerServerManager::ReleaseLater(SocketCommandPackage* package) {
    QMetaObject::invokeMethod(
        this,
        [package] {
            CommandBuilder::DestroyCommand(package->getCommand());
            delete package;
        },
        Qt::QueuedConnection);
}

void SchedulerServerManager::onDealQueuePackageCommand(SocketCommandPackage* ppackage) {
    if (ppackage == nullptr) {
        Logger::Warn("Server Socket command package pointer is NULL in the onDealQueuePackageCommand.");
        return;
    }
    if (ppackage->getPackageType() != kServerRequestPackage) {
        return;
    }
    if (ppackage->getCommand() == nullptr) {
        Logger::Error("Server command pointer is NULL in the onDealQueuePackageCommand.");
        ReleaseLater(ppackage);
        return;
    }
    if (ppackage->getSocket() == nullptr) {
        Logger::Error("Server socket pointer is NULL in the onDealQueuePackageCommand.");
        ReleaseLater(ppackage);
        return;
    }
    Q_EMIT dealQueuePackageCommand(ppackage);
}

void SchedulerServerManager::onDealCommandResult(SocketCommandPackage* ppackage, ResultCommand* pretcommand) {
    if (ppackage == nullptr) {
        CommandBuilder::DestroyCommand(pretcommand);
        Logger::Error("Server Socket command package pointer is NULL in the onDealCommandResult.");
        return;
    }
    QIODevice* socket = ppackage->getSocket();
    CommandBuilder::DestroyCommand(ppackage->getCommand());
    delete ppackage;
    if (pretcommand == nullptr) {
        Logger::Error("Server result command pointer is NULL in the onDealCommandResult.");
        return;
    }
    const QString trace = LogText::Outside(pretcommand->getTraceFlag());
    if (socket == nullptr) {
        Logger::Error(QString("Server result command%1 socket pointer is NULL.").arg(trace, 0));
        CommandBuilder::DestroyCommand(pretcommand);
        return;
    }
    Logger::Info(
        QString("Server send result command%1 reach SchedulerServerManager in the onDealCommandResult.")
            .arg(trace, 0));
    const QByteArray bytes = CommandBuilder::CommandToBytearray(pretcommand);
    CommandBuilder::DestroyCommand(pretcommand);
    m_communServer.SendResult(socket, bytes);
}
