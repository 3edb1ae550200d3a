#include "ClientCommunManager.h"

#include "CommandBuilder.h"
#include "SocketCommandPackage.h"

namespace {
constexpr quint64 kServerRequestPackage = 3;

QMutex g_liveMutex;
ClientCommunManager* g_live = nullptr;
} // namespace

ClientCommunManager::ClientCommunManager(QObject* parent) : QObject(parent) {
    QMutexLocker locker(&g_liveMutex);
    g_live = this;
}

ClientCommunManager::~ClientCommunManager() {
    QMutexLocker locker(&g_liveMutex);
    if (g_live == this) {
        g_live = nullptr;
    }
}

bool ClientCommunManager::Init() {
    return true;
}

void ClientCommunManager::UnInit() {}

bool ClientCommunManager::Start() {
    return true;
}

void ClientCommunManager::Stop() {}

void ClientCommunManager::SetCommunAttribute(const CommunAttribute& attribute) {
    QMutexLocker locker(&m_communAttributeMutex);
    m_communAttribute = attribute;
}

void ClientCommunManager::ClientConnectServer(const CommunAttribute& attribute) {
    SetCommunAttribute(attribute);
    QMetaObject::invokeMethod(this, &ClientCommunManager::toConnectServer, Qt::QueuedConnection);
}

bool ClientCommunManager::RequestCommunCommand(CommCommand* command) {
    if (command == nullptr) {
        return false;
    }
    {
        QMutexLocker locker(&g_liveMutex);
        if (g_live == nullptr) {
            return false;
        }
        g_live->onRequestCommand(command);
    }
    CommandBuilder::DestroyCommand(command);
    return true;
}

void ClientCommunManager::onRequestCommand(CommCommand*) {}

void ClientCommunManager::onDealQueuePackageCommand(SocketCommandPackage* ppackage) {
    // The server manager is offered every package first and may already have
    // released a server request; only other packages may be looked at here.
    if (ppackage == nullptr || ppackage->getPackageType() == kServerRequestPackage) {
        return;
    }
    CommandBuilder::DestroyCommand(ppackage->getCommand());
    delete ppackage;
}
