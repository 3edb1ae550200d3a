#include "CommunProducerConsumerManager.h"

#include "CommandBuilder.h"
#include "SignalStack.h"
#include "SocketCommandPackage.h"

#include <pthread.h>

namespace {
QMutex g_liveMutex;
CommunProducerConsumerManager* g_live = nullptr;
} // namespace

CommunProducerConsumerManager::CommunProducerConsumerManager(QObject* parent) : QObject(parent) {
    QMutexLocker locker(&g_liveMutex);
    g_live = this;
}

CommunProducerConsumerManager::~CommunProducerConsumerManager() {
    Stop();
    UnInit();
    QMutexLocker locker(&g_liveMutex);
    if (g_live == this) {
        g_live = nullptr;
    }
}

bool CommunProducerConsumerManager::Init() {
    return true;
}

bool CommunProducerConsumerManager::Start() {
    QMutexLocker locker(&m_mutex);
    if (m_running) {
        return true;
    }
    m_running = true;
    m_consumer = std::thread([this] {
        SignalStack stack;
        ::pthread_setname_np(::pthread_self(), "command-queue");
        ConsumeLoop();
    });
    return true;
}

void CommunProducerConsumerManager::Stop() {
    {
        QMutexLocker locker(&m_mutex);
        m_running = false;
        m_wakeUp.wakeAll();
    }
    if (m_consumer.joinable()) {
        m_consumer.join();
    }
}

void CommunProducerConsumerManager::UnInit() {
    DiscardQueued();
}

bool CommunProducerConsumerManager::RequestCommunCommand(CommCommand* command, QIODevice* socket,
                                                         quint64 commType, quint64 packageType) {
    if (command == nullptr) {
        return false;
    }
    QMutexLocker locker(&g_liveMutex);
    if (g_live == nullptr) {
        return false;
    }
    auto* package = new SocketCommandPackage(command, socket, commType, packageType);
    if (!g_live->Push(package)) {
        package->setCommand(nullptr);
        delete package;
        return false;
    }
    return true;
}

bool CommunProducerConsumerManager::Push(SocketCommandPackage* package) {
    QMutexLocker locker(&m_mutex);
    if (!m_running || m_packages.size() >= kCapacity) {
        return false;
    }
    m_packages.push_back(package);
    m_wakeUp.wakeOne();
    return true;
}

void CommunProducerConsumerManager::ConsumeLoop() {
    QMutexLocker locker(&m_mutex);
    while (m_running) {
        if (m_packages.empty()) {
            m_wakeUp.wait(&m_mutex);
            continue;
        }
        SocketCommandPackage* package = m_packages.front();
        m_packages.pop_front();
        locker.unlock();
        Deliver(package);
        locker.relock();
    }
}

void CommunProducerConsumerManager::Deliver(SocketCommandPackage* package) {
    // The signal is emitted on the manager's own thread, so that all receivers
    // are queued together: no reply to this package can overtake the offer of
    // the package to a later receiver.
    QMetaObject::invokeMethod(
        this, [this, package] { Q_EMIT dealQueuePackageCommand(package); }, Qt::QueuedConnection);
}

void CommunProducerConsumerManager::DiscardQueued() {
    QMutexLocker locker(&m_mutex);
    for (SocketCommandPackage* package : m_packages) {
        CommandBuilder::DestroyCommand(package->getCommand());
        delete package;
    }
    m_packages.clear();
}
