#include "LogindSessionWatcher.h"

#include "framework/Logger.h"

#include <QDBusConnectionInterface>

namespace {
const QString kService = QStringLiteral("org.freedesktop.login1");
const QString kManagerPath = QStringLiteral("/org/freedesktop/login1");
const QString kManager = QStringLiteral("org.freedesktop.login1.Manager");
const QString kSession = QStringLiteral("org.freedesktop.login1.Session");
constexpr int kSetUpTimeoutMSecs = 2000;
} // namespace

LogindSessionWatcher* LogindSessionWatcher::OnSystemBus(Callback callback, QObject* parent) {
    return new LogindSessionWatcher(QDBusConnection::systemBus(), std::move(callback), parent);
}

LogindSessionWatcher::LogindSessionWatcher(QDBusConnection connection, Callback callback, QObject* parent)
    : QObject(parent), m_connection(std::move(connection)), m_callback(std::move(callback)) {
    if (!m_connection.isConnected()) {
        Logger::Warn(QString("No system bus (%1); the service runs without session events.")
                         .arg(m_connection.lastError().message()));
        return;
    }
    // A bus that stops answering must not hold up the start for long.
    m_connection.interface()->setTimeout(kSetUpTimeoutMSecs);
    if (!m_connection.interface()->isServiceRegistered(kService)) {
        Logger::Warn("logind is not on the system bus; the service runs without session events.");
        return;
    }
    m_watching =
        m_connection.connect(kService, kManagerPath, kManager, "SessionNew", this,
                             SLOT(onSessionNew(QString, QDBusObjectPath))) &&
        m_connection.connect(kService, kManagerPath, kManager, "SessionRemoved", this,
                             SLOT(onSessionRemoved(QString, QDBusObjectPath))) &&
        m_connection.connect(kService, QString(), kSession, "Lock", this, SLOT(onLock(QDBusMessage))) &&
        m_connection.connect(kService, QString(), kSession, "Unlock", this, SLOT(onUnlock(QDBusMessage))) &&
        m_connection.connect(kService, kManagerPath, kManager, "PrepareForSleep", this,
                             SLOT(onPrepareForSleep(bool)));
    m_connection.connect(QString(), "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                         "Disconnected", this, SLOT(onDisconnected()));
    if (!m_watching) {
        Logger::Warn(
            "Cannot subscribe to logind's session signals; the service runs without session events.");
        return;
    }
    Logger::Info("Watching logind for session events.");
}

qint64 LogindSessionWatcher::SessionNumber(const QString& text) {
    bool ok = false;
    const qint64 number = text.toLongLong(&ok);
    return ok ? number : -1;
}

void LogindSessionWatcher::onPrepareForSleep(bool sleeping) {
    if (!sleeping) {
        Logger::Info("The system resumed from sleep; due start times are checked at once.");
        Q_EMIT resumed();
    }
}

void LogindSessionWatcher::onSessionNew(const QString& sessionId, const QDBusObjectPath&) {
    m_callback(0, SessionNumber(sessionId));
}

void LogindSessionWatcher::onSessionRemoved(const QString& sessionId, const QDBusObjectPath&) {
    m_callback(1, SessionNumber(sessionId));
}

void LogindSessionWatcher::onLock(const QDBusMessage& message) {
    m_callback(2, SessionNumber(message.path().section('/', -1)));
}

void LogindSessionWatcher::onUnlock(const QDBusMessage& message) {
    m_callback(3, SessionNumber(message.path().section('/', -1)));
}

void LogindSessionWatcher::onDisconnected() {
    if (!m_watching) {
        return;
    }
    m_watching = false;
    Logger::Warn("Lost the system bus connection; the service goes on without session events.");
}
