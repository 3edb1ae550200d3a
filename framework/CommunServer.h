#pragma once

#include "FrameReader.h"
#include "PeerCredentials.h"

#include <QByteArray>
#include <QHash>
#include <QObject>

#include <functional>

class QTcpServer;
class QTcpSocket;

// The command server's endpoint: a TCP listener on the thread that owns it,
// any number of clients, one incomingBlockData per complete frame. Each
// connection is named by an id that is never reused, so that a reply meant for
// a connection that has gone cannot reach a newer one.
class CommunServer : public QObject {
    Q_OBJECT
public:
    explicit CommunServer(QObject* parent = nullptr);
    ~CommunServer() override;

    // Decides, once per connection when it is accepted, whether its peer may
    // send commands; without one every peer may.
    using AccessCheck = std::function<bool(const PeerCredentials&)>;

    bool Init(quint64 protocolType);
    void setAccessCheck(AccessCheck check) { m_accessCheck = std::move(check); }
    bool Start(const QString& name, quint16 port);
    // Serves a socket that is already bound and listening, such as one handed
    // over by a parent process; the server takes ownership of the descriptor.
    bool StartOnDescriptor(qintptr descriptor);
    void Stop();
    void UnInit();
    // Frames the reply onto the connection it came from; nothing if that
    // connection has gone in the meantime.
    void SendResult(quint64 connectionId, const QByteArray& bytes);
    quint16 serverPort() const;
    QString serverAddress() const;
    // The peer of a connection, looked up once when it was accepted; Unknown
    // once the connection has gone.
    PeerCredentials Peer(quint64 connectionId) const;
    // The access check's verdict on the connection's peer; false once the
    // connection has gone.
    bool IsAdmitted(quint64 connectionId) const;
    // True the first time it is asked for a connection, so that a refused
    // peer is reported once rather than once per command.
    bool FirstRefusal(quint64 connectionId);
    int connectionCount() const { return m_clients.size(); }

Q_SIGNALS:
    void incomingBlockData(quint64 commtype, quint64 connectionId, QByteArray bytes);

private:
    void Serve();
    void onNewConnection();
    void onReadyRead(quint64 connectionId);
    void onDisconnected(quint64 connectionId);
    static bool IsListenAllowed(const QString& name, QString& address);

    QTcpServer* m_server = nullptr;
    struct Client {
        QTcpSocket* socket = nullptr;
        FrameReader reader;
        PeerCredentials peer;
        bool admitted = true;
        bool refusalReported = false;
    };

    QHash<quint64, Client> m_clients;
    quint64 m_lastConnectionId = 0;
    AccessCheck m_accessCheck;
};
