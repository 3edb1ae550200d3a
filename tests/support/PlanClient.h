#pragma once

#include "framework/TriggerAttribute.h"

#include <QByteArray>
#include <QTcpSocket>

// A client of the command server: sends plan commands and reads results.
class PlanClient {
public:
    // Waits for the connection unless told not to (when the server runs on
    // this same thread and must be given the event loop to accept it).
    explicit PlanClient(quint16 port, bool waitForConnection = true);

    bool isConnected() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    void SendRaw(const QByteArray& bytes);
    void SendNewPlan(const QString& planUuid, const TriggerAttribute& attribute);
    void SendModifyPlan(const QString& planUuid, const TriggerAttribute& attribute);
    void SendDeletePlan(const QString& planUuid);
    void SendCommand(quint64 type, const QString& planUuid);
    // The result code of the next reply, or -1 when none comes in time.
    int NextResult(int timeoutMSecs = 10000);

    static QByteArray NewPlanCommand(const QString& planUuid, const TriggerAttribute& attribute);

private:
    QTcpSocket m_socket;
    QByteArray m_buffer;
};
