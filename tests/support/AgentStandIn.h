#pragma once

#include "ReservedPort.h"

#include "framework/CommunServer.h"

#include <QHash>
#include <QStringList>

// A stand-in agent on a port the test reserved: answers every command with
// result 0 and remembers "<type> <plan>" for each.
class AgentStandIn {
public:
    explicit AgentStandIn(ReservedPort& port);
    // An agent that comes back on the port of one that has gone.
    explicit AgentStandIn(quint16 port);

    QStringList Received() const { return m_received; }
    int CountOf(quint64 type, const QString& planUuid) const;
    bool WaitFor(quint64 type, const QString& planUuid, int timeoutMSecs);
    // The start each run (600) of the plan was sent for, in arrival order.
    QStringList DueStartsOf(const QString& planUuid) const { return m_dueStarts.value(planUuid); }
    // The connection each run (600) came on, in arrival order.
    QList<quint64> RunConnections() const { return m_runConnections; }

private:
    void Answer();

    CommunServer m_server;
    QStringList m_received;
    QHash<QString, QStringList> m_dueStarts;
    QList<quint64> m_runConnections;
};
