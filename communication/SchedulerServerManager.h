#pragma once

#include "SchedulerServerCommandDealwith.h"

#include "framework/CommunServer.h"
#include "framework/PeerAccessPolicy.h"
#include "framework/ResultCommand.h"
#include "framework/ServiceThread.h"
#include "framework/SocketCommandPackage.h"

class QIODevice;

// The command server: requests arrive on the endpoint, go through the
// producer/consumer queue, are handled on the dealing thread and answered on
// the socket they came from.
class SchedulerServerManager : public QObject {
    Q_OBJECT
public:
    explicit SchedulerServerManager(QObject* parent = nullptr);
    ~SchedulerServerManager() override;

    bool Init();
    bool Start();
    void Stop();
    void UnInit();

    quint16 serverPort() const { return m_communServer.serverPort(); }

Q_SIGNALS:
    void dealQueuePackageCommand(SocketCommandPackage* ppackage);

public Q_SLOTS:
    void onDealQueuePackageCommand(SocketCommandPackage* ppackage);

private Q_SLOTS:
    void onProducerPackageCommand(quint64 commtype, QIODevice* psocket, QByteArray bytes);
    void onDealCommandResult(SocketCommandPackage* ppackage, ResultCommand* pretcommand);

private:
    void ReleaseLater(SocketCommandPackage* package);
    bool Admit(QIODevice* socket, const CommCommand& command);
    void Refuse(QIODevice* socket, CommCommand* command);

    CommunServer m_communServer;
    PeerAccessPolicy m_accessPolicy;
    ServiceThread m_dealThread{"plan-commands"};
    SchedulerServerCommandDealwith m_commandDealwith;
};
