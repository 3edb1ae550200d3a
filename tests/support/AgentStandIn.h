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
    // The next starts the plan's trigger-info reports (601) named, in arrival
    // order.
    QStringList ReportedStartsOf(const QString& planUuid) const { return m_reportedStarts.value(planUuid); }
    // The connection each run (600) came on, in arrival order.
    QList<quint64> RunConnections() const { return m_runConnections; }

private:
    void Answer();

    CommunServer m_server;
    QStringList m_received;
    QHash<QString, QStringList> m_dueStarts;
    QHash<QString, QStringList> m_reportedStarts;
    QList<quint64> m_runConnections;
};
