#include "PackageMailbox.h"

PackageMailbox::PackageMailbox(QObject* context, Receiver receiver)
    : m_context(context), m_receiver(std::move(receiver)) {}

void PackageMailbox::Post(std::unique_ptr<SocketCommandPackage> package) {
    QObject* context = m_context.data();
    if (context == nullptr) {
        return;
    }
    {
        QMutexLocker locker(&m_mutex);
        m_packages.push_back(std::move(package));
    }
    QMetaObject::invokeMethod(
        context, [this] { DeliverOne(); }, Qt::QueuedConnection);
}

void PackageMailbox::DeliverOne() {
    std::unique_ptr<SocketCommandPackage> package;
    {
        QMutexLocker locker(&m_mutex);
        if (m_packages.empty()) {
            return;
        }
        package = std::move(m_packages.front());
        m_packages.pop_front();
    }
    m_receiver(std::move(package));
}
