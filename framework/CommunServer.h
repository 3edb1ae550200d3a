#pragma once

#include "FrameReader.h"

#include <QByteArray>
#include <QHash>
#include <QObject>

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

    bool Init(quint64 protocolType);
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

Q_SIGNALS:
    void incomingBlockData(quint64 commtype, QIODevice* psocket, QByteArray bytes);

private:
    void Serve();
    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    void onDisconnected(QTcpSocket* socket);
    static bool IsListenAllowed(const QString& name, QString& address);

    QTcpServer* m_server = nullptr;
    QHash<QIODevice*, FrameReader> m_clients;
};
