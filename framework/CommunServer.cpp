#include "CommunServer.h"

#include "ConfigReader.h"
#include "Logger.h"
#include "WireFormat.h"

#include <QEvent>
#include <QHostAddress>
#include <QHostInfo>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

CommunServer::CommunServer(QObject* parent) : QObject(parent) {
    m_uptime.start();
    connect(&m_sweep, &QTimer::timeout, this, &CommunServer::Sweep);
}

CommunServer::~CommunServer() {
    Stop();
}

bool CommunServer::Init(quint64 protocolType) {
    return protocolType == ProtocolTypes::kTcp;
}

bool CommunServer::IsListenAllowed(const QString& name, QString& address) {
    QHostAddress host(name);
    if (host.isNull()) {
        const QHostInfo info = QHostInfo::fromName(name);
        if (info.addresses().isEmpty()) {
            Logger::Error(QString("The command server name %1 does not resolve.").arg(name));
            return false;
        }
        host = info.addresses().first();
    }
    address = host.toString();
    if (host.isLoopback()) {
        return true;
    }
    if (!ConfigReader::getAllowRemote()) {
        Logger::Error(
            QString("The command server refuses to listen on %1, which is not a loopback address; set "
                    "AllowRemote=true in [Communication] to allow it.")
                .arg(address));
        return false;
    }
    Logger::Warn(QString("The command server listens on %1, reachable from other hosts.").arg(address));
    return true;
}

bool CommunServer::Start(const QString& name, quint16 port) {
    if (m_server != nullptr) {
        return true;
    }
    QString address;
    if (!IsListenAllowed(name, address)) {
        return false;
    }
    Serve();
    return Bound(m_server->listen(QHostAddress(address), port),
                 QString("listen on %1:%2").arg(address).arg(port));
}

bool CommunServer::StartOnDescriptor(qintptr descriptor) {
    if (m_server != nullptr) {
        return false;
    }
    Serve();
    return Bound(m_server->setSocketDescriptor(descriptor), QString("serve descriptor %1").arg(descriptor));
}

bool CommunServer::Bound(bool bound, const QString& what) {
    if (bound) {
        GuardAccepting();
        return true;
    }
    Logger::Error(QString("The command server cannot %1: %2.").arg(what, m_server->errorString()));
    delete m_server;
    m_server = nullptr;
    return false;
}

void CommunServer::Serve() {
    m_server = new QTcpServer(this);
    m_server->setMaxPendingConnections(1024);
    connect(m_server, &QTcpServer::newConnection, this, &CommunServer::onNewConnection);
}

void CommunServer::Stop() {
    if (m_server == nullptr) {
        return;
    }
    m_server->close();
    m_sweep.stop();
    const QHash<quint64, Client> clients = m_clients;
    m_clients.clear();
    for (const Client& client : clients) {
        client.socket->disconnect(this);
        client.socket->abort();
        client.socket->deleteLater();
    }
    delete m_server;
    m_server = nullptr;
}

void CommunServer::UnInit() {}

quint16 CommunServer::serverPort() const {
    return m_server != nullptr ? m_server->serverPort() : 0;
}

QString CommunServer::serverAddress() const {
    return m_server != nullptr ? m_server->serverAddress().toString() : QString();
}

PeerCredentials CommunServer::Peer(quint64 connectionId) const {
    const auto it = m_clients.constFind(connectionId);
    return it != m_clients.constEnd() ? it->peer : PeerCredentials();
}

bool CommunServer::IsAdmitted(quint64 connectionId) const {
    const auto it = m_clients.constFind(connectionId);
    return it != m_clients.constEnd() && it->admitted;
}

bool CommunServer::FirstRefusal(quint64 connectionId) {
    const auto it = m_clients.find(connectionId);
    if (it == m_clients.end() || it->refusalReported) {
        return false;
    }
    it->refusalReported = true;
    return true;
}

void CommunServer::SendResult(quint64 connectionId, const QByteArray& bytes) {
    const auto it = m_clients.constFind(connectionId);
    if (it == m_clients.constEnd()) {
        return;
    }
    it->socket->write(FrameReader::Frame(bytes));
}

void CommunServer::onNewConnection() {
    while (m_server != nullptr && m_server->hasPendingConnections()) {
        MakeRoom(false);
        QTcpSocket* socket = m_server->nextPendingConnection();
        const quint64 id = ++m_lastConnectionId;
        Client client;
        client.socket = socket;
        client.lastActivity = m_uptime.elapsed();
        client.activityOrder = ++m_lastActivityOrder;
        client.peer = PeerCredentials::OfSocket(static_cast<int>(socket->socketDescriptor()));
        client.admitted = !m_accessCheck || m_accessCheck(client.peer);
        m_clients.insert(id, client);
        connect(socket, &QTcpSocket::readyRead, this, [this, id] { onReadyRead(id); });
        connect(socket, &QTcpSocket::disconnected, this, [this, id] { onDisconnected(id); });
    }
    const qint64 shortest =
        qMin(m_limits.idleMSecs > 0 ? m_limits.idleMSecs : kLimitReportMSecs,
             m_limits.partialFrameMSecs > 0 ? m_limits.partialFrameMSecs : kLimitReportMSecs);
    if (!m_sweep.isActive() && !m_clients.isEmpty()) {
        m_sweep.start(static_cast<int>(qBound<qint64>(50, shortest / 4, 1000)));
    }
}

// At the limit the connection idle the longest is closed for the newcomer:
// a client that holds connections open cannot lock the others out.
void CommunServer::MakeRoom(bool outOfDescriptors) {
    const bool atLimit = m_limits.maxClients > 0 && m_clients.size() >= m_limits.maxClients;
    if (m_clients.isEmpty() || (!atLimit && !outOfDescriptors)) {
        return;
    }
    quint64 oldest = 0;
    quint64 oldestOrder = std::numeric_limits<quint64>::max();
    for (auto it = m_clients.cbegin(); it != m_clients.cend(); ++it) {
        if (it->activityOrder < oldestOrder) {
            oldestOrder = it->activityOrder;
            oldest = it.key();
        }
    }
    Close(oldest);
    ++m_evictedSinceReport;
    ReportEvictions(false);
}

void CommunServer::ReportEvictions(bool evenIfRecent) {
    const qint64 now = m_uptime.elapsed();
    if (m_evictedSinceReport == 0 || (!evenIfRecent && now - m_lastLimitReport < kLimitReportMSecs)) {
        return;
    }
    Logger::Warn(QString("The command server is at its limit of connections (MaxClients=%1, or the open-file "
                         "limit); it closed %2 idle connection(s) to admit new ones.")
                     .arg(m_limits.maxClients)
                     .arg(m_evictedSinceReport));
    m_evictedSinceReport = 0;
    m_lastLimitReport = now;
}

void CommunServer::Sweep() {
    const qint64 now = m_uptime.elapsed();
    if (now - m_lastLimitReport >= kLimitReportMSecs) {
        ReportEvictions(true);
    }
    QList<QPair<quint64, QString>> closing;
    for (auto it = m_clients.cbegin(); it != m_clients.cend(); ++it) {
        if (m_limits.partialFrameMSecs > 0 && it->partialSince >= 0 &&
            now - it->partialSince >= m_limits.partialFrameMSecs) {
            closing.append(
                {it.key(),
                 QString("it held an incomplete frame for %1 s").arg(m_limits.partialFrameMSecs / 1000.0)});
        } else if (m_limits.idleMSecs > 0 && now - it->lastActivity >= m_limits.idleMSecs) {
            closing.append({it.key(), QString("it sent nothing for %1 s").arg(m_limits.idleMSecs / 1000.0)});
        }
    }
    for (const auto& [id, why] : closing) {
        Logger::Warn(QString("Closed %1: %2.").arg(Describe(id), why));
        Close(id);
    }
    if (m_clients.isEmpty() && m_evictedSinceReport == 0) {
        m_sweep.stop();
    }
}

QString CommunServer::Describe(quint64 connectionId) const {
    const auto it = m_clients.constFind(connectionId);
    if (it == m_clients.constEnd()) {
        return QString("connection %1").arg(connectionId);
    }
    return QString("connection %1 from %2:%3")
        .arg(connectionId)
        .arg(it->socket->peerAddress().toString())
        .arg(it->socket->peerPort());
}

void CommunServer::Close(quint64 connectionId) {
    const auto it = m_clients.find(connectionId);
    if (it == m_clients.end()) {
        return;
    }
    QTcpSocket* socket = it->socket;
    m_clients.erase(it);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
}

// Without a free descriptor accept fails at once while the listening socket
// stays readable, and Qt takes that failure for a passing one: it would try
// again at once, forever. So before each accept the server makes sure a
// descriptor is free: if not, the connection idle the longest is closed for
// the newcomer; with none to close, accepting pauses for a while, and the
// first such pause is logged.
void CommunServer::GuardAccepting() {
    for (QSocketNotifier* notifier : m_server->findChildren<QSocketNotifier*>()) {
        if (notifier->type() == QSocketNotifier::Read) {
            notifier->installEventFilter(this);
        }
    }
}

bool CommunServer::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::SockAct || m_server == nullptr || HasSpareDescriptor()) {
        return QObject::eventFilter(watched, event);
    }
    if (!m_clients.isEmpty()) {
        MakeRoom(true);
        return QObject::eventFilter(watched, event);
    }
    PauseAccepting();
    return true;
}

bool CommunServer::HasSpareDescriptor() const {
    const int spare = ::fcntl(static_cast<int>(m_server->socketDescriptor()), F_DUPFD_CLOEXEC, 0);
    if (spare < 0) {
        return errno != EMFILE && errno != ENFILE;
    }
    ::close(spare);
    return true;
}

void CommunServer::PauseAccepting() {
    m_server->pauseAccepting();
    if (!m_acceptPauseReported) {
        m_acceptPauseReported = true;
        Logger::Warn(QString("The command server has no file descriptor left for a new connection; it pauses "
                             "accepting for %1 ms each time this happens. Raise the open-file limit "
                             "(LimitNOFILE).")
                         .arg(kAcceptPauseMSecs));
    }
    QTimer::singleShot(kAcceptPauseMSecs, this, [this] {
        if (m_server != nullptr) {
            m_server->resumeAccepting();
        }
    });
}

void CommunServer::onReadyRead(quint64 connectionId) {
    auto it = m_clients.find(connectionId);
    if (it == m_clients.end()) {
        return;
    }
    QTcpSocket* socket = it->socket;
    FrameReader& reader = it->reader;
    reader.Append(socket->readAll());
    it->lastActivity = m_uptime.elapsed();
    it->activityOrder = ++m_lastActivityOrder;
    QList<QByteArray> frames;
    QByteArray payload;
    while (reader.Next(payload)) {
        frames.append(payload);
    }
    it->partialSince = !reader.HasPartial()    ? -1
                       : it->partialSince >= 0 ? it->partialSince
                                               : it->lastActivity;
    const bool failed = reader.Failed();
    const quint32 refusedLength = reader.RefusedLength();
    // A receiver connected directly may close the connection; nothing of it
    // is touched after the frames have gone out.
    for (const QByteArray& frame : frames) {
        Q_EMIT incomingBlockData(CommTypes::kServerRequest, connectionId, frame);
    }
    if (failed && m_clients.contains(connectionId)) {
        Logger::Warn(
            QString("Refused a frame of %1 bytes from %2:%3 (the limit is %4 bytes); connection closed.")
                .arg(refusedLength)
                .arg(socket->peerAddress().toString())
                .arg(socket->peerPort())
                .arg(WireFormat::kMaxFramePayload));
        socket->abort();
    }
}

void CommunServer::onDisconnected(quint64 connectionId) {
    const auto it = m_clients.find(connectionId);
    if (it == m_clients.end()) {
        return;
    }
    it->socket->deleteLater();
    m_clients.erase(it);
}
