#include "CommunServer.h"

#include "ConfigReader.h"
#include "Logger.h"
#include "WireFormat.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QTcpServer>
#include <QTcpSocket>

CommunServer::CommunServer(QObject* parent) : QObject(parent) {}

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
    if (!m_server->listen(QHostAddress(address), port)) {
        Logger::Error(QString("The command server cannot listen on %1:%2: %3.")
                          .arg(address)
                          .arg(port)
                          .arg(m_server->errorString()));
        delete m_server;
        m_server = nullptr;
        return false;
    }
    return true;
}

bool CommunServer::StartOnDescriptor(qintptr descriptor) {
    if (m_server != nullptr) {
        return false;
    }
    Serve();
    if (!m_server->setSocketDescriptor(descriptor)) {
        Logger::Error(QString("The command server cannot serve descriptor %1: %2.")
                          .arg(descriptor)
                          .arg(m_server->errorString()));
        delete m_server;
        m_server = nullptr;
        return false;
    }
    return true;
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
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        const quint64 id = ++m_lastConnectionId;
        Client client;
        client.socket = socket;
        client.peer = PeerCredentials::OfSocket(static_cast<int>(socket->socketDescriptor()));
        client.admitted = !m_accessCheck || m_accessCheck(client.peer);
        m_clients.insert(id, client);
        connect(socket, &QTcpSocket::readyRead, this, [this, id] { onReadyRead(id); });
        connect(socket, &QTcpSocket::disconnected, this, [this, id] { onDisconnected(id); });
    }
}

void CommunServer::onReadyRead(quint64 connectionId) {
    auto it = m_clients.find(connectionId);
    if (it == m_clients.end()) {
        return;
    }
    QTcpSocket* socket = it->socket;
    FrameReader& reader = it->reader;
    reader.Append(socket->readAll());
    QByteArray payload;
    while (reader.Next(payload)) {
        Q_EMIT incomingBlockData(CommTypes::kServerRequest, connectionId, payload);
    }
    if (reader.Failed()) {
        Logger::Warn(
            QString("Refused a frame of %1 bytes from %2:%3 (the limit is %4 bytes); connection closed.")
                .arg(reader.RefusedLength())
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
