#include "NotifySocket.h"

#include <QTest>

#include <algorithm>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

NotifySocket::NotifySocket(const QString& path) {
    m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.toLocal8Bit().constData(), sizeof(address.sun_path));
    ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::chmod(address.sun_path, 0666);
}

NotifySocket::~NotifySocket() {
    ::close(m_fd);
}

const QStringList& NotifySocket::received() {
    char buffer[4096];
    ssize_t length = 0;
    while ((length = ::recv(m_fd, buffer, sizeof(buffer), 0)) > 0) {
        m_received += QString::fromUtf8(buffer, static_cast<int>(length)).split('\n');
    }
    return m_received;
}

bool NotifySocket::WaitUntil(const std::function<bool()>& arrived) {
    return QTest::qWaitFor(arrived, 10000);
}

bool NotifySocket::WaitFor(const QString& message) {
    return WaitUntil([&] { return received().contains(message); });
}

bool NotifySocket::WaitForContaining(const QString& part) {
    return WaitUntil([&] {
        const QStringList& lines = received();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const QString& line) { return line.contains(part); });
    });
}
