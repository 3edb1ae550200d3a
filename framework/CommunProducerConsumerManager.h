#pragma once

#include "PackageMailbox.h"
#include "SocketCommandPackage.h"

#include <QMutex>
#include <QObject>
#include <QWaitCondition>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <thread>

// A bounded queue of request packages with one consumer thread. Each package
// type has at most one receiver, which is handed the package (and so owns it)
// on the thread of its context object; a package nobody receives is dropped.
class CommunProducerConsumerManager : public QObject {
    Q_OBJECT
public:
    static constexpr size_t kCapacity = 10000;

    // Runs first on the consumer thread, for what the process wants of every
    // thread it starts (an alternate signal stack for crash reports).
    using ThreadStart = std::function<void()>;

    explicit CommunProducerConsumerManager(ThreadStart threadStart = {}, QObject* parent = nullptr);
    ~CommunProducerConsumerManager() override;

    bool Init();
    bool Start();
    void Stop();
    void UnInit();

    // Packages of this type go to the receiver, called on the context's
    // thread; once the context is destroyed they are dropped. Set before
    // Start; the context must outlive Stop.
    void SetReceiver(quint64 packageType, QObject* context, PackageMailbox::Receiver receiver);

    // Queues a package on the live manager; false when there is none, it is
    // not running, the queue is full or the command is null. The command is
    // destroyed when it is refused.
    static bool RequestCommunCommand(std::unique_ptr<CommCommand> command, quint64 connectionId,
                                     quint64 commType, quint64 packageType);

private:
    bool Push(std::unique_ptr<SocketCommandPackage>& package);
    void ConsumeLoop();

    QMutex m_mutex;
    QWaitCondition m_wakeUp;
    std::deque<std::unique_ptr<SocketCommandPackage>> m_packages;
    std::map<quint64, std::unique_ptr<PackageMailbox>> m_receivers;
    bool m_running = false;
    ThreadStart m_threadStart;
    std::thread m_consumer;
};
