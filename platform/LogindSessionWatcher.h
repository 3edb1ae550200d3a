#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QObject>

#include <functional>

// Watches logind on the system bus: a new session is logon (0), a removed
// session logoff (1), a session's Lock signal lock (2), its Unlock signal
// unlock (3); the end of a system sleep is `resumed`. Without a bus or logind
// it writes one warning and stays quiet.
class LogindSessionWatcher : public QObject {
    Q_OBJECT
public:
    using Callback = std::function<void(int event, qint64 sessionId)>;

    LogindSessionWatcher(QDBusConnection connection, Callback callback, QObject* parent = nullptr);
    // Watches the system bus (DBUS_SYSTEM_BUS_ADDRESS is honoured).
    static LogindSessionWatcher* OnSystemBus(Callback callback, QObject* parent = nullptr);

Q_SIGNALS:
    void resumed();

private Q_SLOTS:
    void onPrepareForSleep(bool sleeping);
    void onSessionNew(const QString& sessionId, const QDBusObjectPath& path);
    void onSessionRemoved(const QString& sessionId, const QDBusObjectPath& path);
    void onLock(const QDBusMessage& message);
    void onUnlock(const QDBusMessage& message);
    void onDisconnected();

private:
    static qint64 SessionNumber(const QString& text);

    QDBusConnection m_connection;
    Callback m_callback;
    bool m_watching = false;
};
