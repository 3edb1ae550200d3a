#pragma once

#include "CommunAttribute.h"

#include <QMutex>
#include <QObject>

#include "SocketCommandPackage.h"

#include <memory>

// Base of the client link to the agent. The static RequestCommunCommand routes
// a command to the one live manager, which serialises it in onRequestCommand;
// the command itself is disposed of here once that returns.
class ClientCommunManager : public QObject {
    Q_OBJECT
public:
    explicit ClientCommunManager(QObject* parent = nullptr);
    ~ClientCommunManager() override;

    virtual bool Init();
    virtual void UnInit();
    virtual bool Start();
    virtual void Stop();
    virtual void SetCommunAttribute(const CommunAttribute& attribute);

    // Stores the destination and asks the workers to connect once the
    // application's event loop runs (that is, after Start).
    void ClientConnectServer(const CommunAttribute& attribute);

    // True when a live manager took the command; false when there is none.
    static bool RequestCommunCommand(std::unique_ptr<CommCommand> command);
    // The queue's packages of the client side (type 5) end here.
    void onDealQueuePackageCommand(std::unique_ptr<SocketCommandPackage> ppackage);

Q_SIGNALS:
    void toConnectServer();

public Q_SLOTS:
    virtual void onRequestCommand(CommCommand* command);

protected:
    CommunAttribute m_communAttribute;
    QMutex m_communAttributeMutex;
};
