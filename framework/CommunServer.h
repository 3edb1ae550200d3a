#pragma once

#include "FrameReader.h"
#include "PeerCredentials.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>

#include <functional>

class QTcpServer;
class QTcpSocket;

// The command server's endpoint: a TCP listener on the thread that owns it,
// any number of clients, one incomingBlockData per complete frame. Each
// connection is named by an id that is never reused, so that a reply meant for
// a connection that has gone cannot reach a newer one.
//
// A server that cannot be exhausted: at most maxClients connections (the one
// idle the longest makes room for a newcomer), connections that send nothing
// or stall inside a frame are closed, and when the process runs out of
// descriptors accepting pauses instead of failing in a loop.
class CommunServer : public QObject {
    Q_OBJECT
public:
    // 0 means no limit; an endpoint without limits keeps every connection.
    struct Limits {
        int maxClients = 0;
        qint64 idleMSecs = 0;
        qint64 partialFrameMSecs = 0;
    };
    // How long accepting pauses after the process ran out of descriptors.
    static constexpr int kAcceptPauseMSecs = 1000;
    // The warn line about connections closed at the limit, at most this often.
    static constexpr qint64 kLimitReportMSecs = 60000;

    explicit CommunServer(QObject* parent = nullptr);
    ~CommunServer() override;

    // Decides, once per connection when it is accepted, whether its peer may
    // send commands; without one every peer may.
    using AccessCheck = std::function<bool(const PeerCredentials&)>;

    bool Init(quint64 protocolType);
    void setAccessCheck(AccessCheck check) { m_accessCheck = std::move(check); }
    void setLimits(const Limits& limits) { m_limits = limits; }
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

Q_SIGNALS:
    void incomingBlockData(quint64 commtype, quint64 connectionId, QByteArray bytes);

private:
    void Serve();
    // Accepting starts once the server is bound; a failed bind is logged with
    // what was tried and leaves no server behind.
    bool Bound(bool bound, const QString& what);
    void onNewConnection();
    void onReadyRead(quint64 connectionId);
    void onDisconnected(quint64 connectionId);
    bool eventFilter(QObject* watched, QEvent* event) override;
    void GuardAccepting();
    bool HasSpareDescriptor() const;
    void PauseAccepting();
    // Closes the connection idle the longest when the clients are at their
    // limit or the process is out of descriptors.
    void MakeRoom(bool outOfDescriptors);
    void Sweep();
    void ReportEvictions(bool evenIfRecent);
    // Closes without the disconnected notification; the caller logs why.
    void Close(quint64 connectionId);
    QString Describe(quint64 connectionId) const;
    static bool IsListenAllowed(const QString& name, QString& address);

    QTcpServer* m_server = nullptr;
    struct Client {
        QTcpSocket* socket = nullptr;
        FrameReader reader;
        PeerCredentials peer;
        bool admitted = true;
        bool refusalReported = false;
        qint64 lastActivity = 0;
        // Orders connections by their last activity without ties.
        quint64 activityOrder = 0;
        // Since when a frame has been begun and not completed; -1 for none.
        qint64 partialSince = -1;
    };

    QHash<quint64, Client> m_clients;
    quint64 m_lastConnectionId = 0;
    quint64 m_lastActivityOrder = 0;
    Limits m_limits;
    QElapsedTimer m_uptime;
    QTimer m_sweep;
    qint64 m_lastLimitReport = -kLimitReportMSecs;
    int m_evictedSinceReport = 0;
    bool m_acceptPauseReported = false;
    AccessCheck m_accessCheck;
};
