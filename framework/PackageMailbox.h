#pragma once

#include "SocketCommandPackage.h"

#include <QMutex>
#include <QObject>
#include <QPointer>

#include <deque>
#include <functional>
#include <memory>

// Hands packages to one receiver on the thread of its context object. Each
// package waits here, under the lock, until the queued call made for it takes
// it, so the package crosses threads only through the lock, and one whose call
// never runs (its context went, or its thread ended) is freed with the mailbox.
// The mailbox must outlive the calls it posts, as its context's member does.
class PackageMailbox {
public:
    using Receiver = std::function<void(std::unique_ptr<SocketCommandPackage>)>;

    PackageMailbox(QObject* context, Receiver receiver);
    PackageMailbox(const PackageMailbox&) = delete;
    PackageMailbox& operator=(const PackageMailbox&) = delete;

    void Post(std::unique_ptr<SocketCommandPackage> package);

private:
    void DeliverOne();

    QPointer<QObject> m_context;
    Receiver m_receiver;
    QMutex m_mutex;
    std::deque<std::unique_ptr<SocketCommandPackage>> m_packages;
};
