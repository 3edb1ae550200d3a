#include "CommunProducerConsumerManager.h"

#include <pthread.h>

namespace {
QMutex g_liveMutex;
CommunProducerConsumerManager* g_live = nullptr;
} // namespace

CommunProducerConsumerManager::CommunProducerConsumerManager(ThreadStart threadStart, QObject* parent)
    : QObject(parent), m_threadStart(std::move(threadStart)) {
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
        if (m_threadStart) {
            m_threadStart();
        }
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
    QMutexLocker locker(&m_mutex);
    m_packages.clear();
}

void CommunProducerConsumerManager::SetReceiver(quint64 packageType, QObject* context,
                                                PackageMailbox::Receiver receiver) {
    QMutexLocker locker(&m_mutex);
    m_receivers[packageType] = std::make_unique<PackageMailbox>(context, std::move(receiver));
}

bool CommunProducerConsumerManager::RequestCommunCommand(std::unique_ptr<CommCommand> command,
                                                         quint64 connectionId, quint64 commType,
                                                         quint64 packageType) {
    if (!command) {
        return false;
    }
    auto package =
        std::make_unique<SocketCommandPackage>(std::move(command), connectionId, commType, packageType);
    QMutexLocker locker(&g_liveMutex);
    return g_live != nullptr && g_live->Push(package);
}

bool CommunProducerConsumerManager::Push(std::unique_ptr<SocketCommandPackage>& package) {
    QMutexLocker locker(&m_mutex);
    if (!m_running || m_packages.size() >= kCapacity) {
        return false;
    }
    m_packages.push_back(std::move(package));
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
        std::unique_ptr<SocketCommandPackage> package = std::move(m_packages.front());
        m_packages.pop_front();
        const auto receiver = m_receivers.find(package->getPackageType());
        PackageMailbox* mailbox = receiver != m_receivers.end() ? receiver->second.get() : nullptr;
        locker.unlock();
        if (mailbox != nullptr) {
            mailbox->Post(std::move(package));
        }
        locker.relock();
    }
}
