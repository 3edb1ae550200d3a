#pragma once

#include "FrameReader.h"
#include "PeerCredentials.h"

#include <QByteArray>
#include <QHash>
#include <QObject>

#include <functional>

class QIODevice;
class QTcpServer;
class QTcpSocket;

// The command server's endpoint: a TCP listener on the thread that owns it,
// any number of clients, one incomingBlockData per complete frame.
class CommunServer : public QObject {
    Q_OBJECT
public:
    // Communication type of requests arriving here.
    static constexpr quint64 kRequestCommType = 2;

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
    // Frames the reply onto the socket it came from; nothing if that socket
    // has gone in the meantime.
    void SendResult(QIODevice* socket, const QByteArray& bytes);
    quint16 serverPort() const;
    QString serverAddress() const;
    // The peer of a connection, looked up once when it was accepted; Unknown
    // once the connection has gone.
    PeerCredentials Peer(QIODevice* socket) const;
    // The access check's verdict on the connection's peer; false once the
    // connection has gone.
    bool IsAdmitted(QIODevice* socket) const;
    // True the first time it is asked for a connection, so that a refused
    // peer is reported once rather than once per command.
    bool FirstRefusal(QIODevice* socket);

Q_SIGNALS:
    void incomingBlockData(quint64 commtype, QIODevice* psocket, QByteArray bytes);

private:
    void Serve();
    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    void onDisconnected(QTcpSocket* socket);
    static bool IsListenAllowed(const QString& name, QString& address);

    QTcpServer* m_server = nullptr;
    struct Client {
        FrameReader reader;
        PeerCredentials peer;
        bool admitted = true;
        bool refusalReported = false;
    };

    QHash<QIODevice*, Client> m_clients;
    AccessCheck m_accessCheck;
};
