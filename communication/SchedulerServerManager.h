#pragma once

#include "SchedulerServerCommandDealwith.h"

#include "framework/CommunServer.h"
#include "framework/PackageMailbox.h"
#include "framework/PeerAccessPolicy.h"
#include "framework/ResultCommand.h"
#include "framework/SocketCommandPackage.h"
#include "platform/ServiceThread.h"

#include <memory>

// The command server: requests arrive on the endpoint, go through the
// producer/consumer queue, are handled on the dealing thread and answered on
// the connection they came from. Each package has one owner at a time: the
// queue, then this manager, then the handler.
class SchedulerServerManager : public QObject {
    Q_OBJECT
public:
    explicit SchedulerServerManager(QObject* parent = nullptr);
    ~SchedulerServerManager() override;

    bool Init();
    bool Start();
    void Stop();
    void UnInit();
    // Where plan deletions are recorded; before Start.
    void SetRunState(RunStateRecorder* runState) { m_commandDealwith.SetRunState(runState); }

    quint16 serverPort() const { return m_communServer.serverPort(); }
    // Safe from any thread.
    std::map<std::pair<QString, QString>, quint64> PlanCommandsDealt() const {
        return m_commandDealwith.Dealt();
    }

    // The queue's receiver of server requests (package type 3).
    void onDealQueuePackageCommand(std::unique_ptr<SocketCommandPackage> ppackage);

private Q_SLOTS:
    void onProducerPackageCommand(quint64 commtype, quint64 connectionId, QByteArray bytes);
    void onDealCommandResult(quint64 connectionId, QString trace, QByteArray reply);

private:
    bool Admit(quint64 connectionId, const CommCommand& command);
    void Refuse(quint64 connectionId, const CommCommand& command);

    CommunServer m_communServer;
    PeerAccessPolicy m_accessPolicy;
    ServiceThread m_dealThread{"plan-commands"};
    SchedulerServerCommandDealwith m_commandDealwith;
    PackageMailbox m_toHandler;
};
