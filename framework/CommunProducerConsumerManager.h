#pragma once

#include <QMutex>
#include <QObject>
#include <QWaitCondition>

#include <deque>
#include <thread>

class CommCommand;
class QIODevice;
#include "SocketCommandPackage.h"

// A bounded queue of request packages with one consumer thread, which emits
// each package with dealQueuePackageCommand. Receivers connect with queued
// connections; whoever finishes with a package deletes it.
class CommunProducerConsumerManager : public QObject {
    Q_OBJECT
public:
    static constexpr size_t kCapacity = 10000;

    explicit CommunProducerConsumerManager(QObject* parent = nullptr);
    ~CommunProducerConsumerManager() override;

    bool Init();
    bool Start();
    void Stop();
    void UnInit();

    // Queues a package on the live manager; false when there is none, it is
    // not running, the queue is full or the command is null. On false the
    // command stays the caller's.
    static bool RequestCommunCommand(CommCommand* command, QIODevice* socket, quint64 commType,
                                     quint64 packageType);

Q_SIGNALS:
    void dealQueuePackageCommand(SocketCommandPackage* ppackage);

private:
    bool Push(SocketCommandPackage* package);
    void ConsumeLoop();
    void Deliver(SocketCommandPackage* package);
    void DiscardQueued();

    QMutex m_mutex;
    QWaitCondition m_wakeUp;
    std::deque<SocketCommandPackage*> m_packages;
    bool m_running = false;
    std::thread m_consumer;
};
