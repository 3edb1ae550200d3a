#include "ClientCommunManager.h"

namespace {
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

bool ClientCommunManager::RequestCommunCommand(std::unique_ptr<CommCommand> command) {
    if (!command) {
        return false;
    }
    QMutexLocker locker(&g_liveMutex);
    if (g_live == nullptr) {
        return false;
    }
    g_live->onRequestCommand(command.get());
    return true;
}

void ClientCommunManager::onRequestCommand(CommCommand*) {}

// Nothing of the client side travels through the queue yet; such a package
// is released here, by going out of scope.
void ClientCommunManager::onDealQueuePackageCommand(std::unique_ptr<SocketCommandPackage>) {}
