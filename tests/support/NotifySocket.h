#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// A datagram socket like systemd's notify socket, collecting the lines that
// arrive (READY=1, STATUS=...).
class NotifySocket {
public:
    explicit NotifySocket(const QString& path);
    ~NotifySocket();
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    bool WaitFor(const QString& message);
    bool WaitForContaining(const QString& part);
    // What arrived so far, one entry per line.
    const QStringList& received();

private:
    bool WaitUntil(const std::function<bool()>& arrived);

    int m_fd = -1;
    QStringList m_received;
};
