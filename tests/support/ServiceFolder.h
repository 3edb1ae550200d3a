#pragma once

#include "QtPrinters.h"
#include "ReservedPort.h"

#include <QString>
#include <QTemporaryDir>

#include <functional>

class TriggerAttribute;

// A throw-away application folder: cfg/config.ini and data/ for the trigger
// database. The command server takes any free port (SchedulerPort=0) and logs
// it; the agent's port is reserved here, so that a stand-in agent can listen
// on it whenever the test wants one.
class ServiceFolder {
public:
    explicit ServiceFolder(quint64 fireType = 0);

    // With a trailing "/", as the service's application directory.
    QString Dir() const { return m_dir.path() + "/"; }
    QString Path(const QString& relative) const { return Dir() + relative; }
    ReservedPort& agentPort() { return m_agentPort; }
    // Rewrites the configuration; 0 lets the command server choose its port.
    void WriteConfig(quint16 schedulerPort = 0, quint16 agentPort = 0);
    void RemoveConfig();
    // Stores a plan in data/alldb.db, as orvelctl and the suite do.
    void StorePlan(const QString& planUuid, quint64 type, const QString& start = QString());
    void StorePlan(const QString& planUuid, const TriggerAttribute& attribute);
    // Stores daily plans "plan-<i>" in one transaction, plan i starting at
    // startOf(i).
    void StoreDailyPlans(int count, const std::function<QString(int)>& startOf);
    // Adds [Scheduler] MissedRunPolicy and MissedRunSpreadSecs to the
    // configuration.
    void SetMissedRunPolicy(const QString& policy, quint64 spreadSecs = 0);

private:
    QTemporaryDir m_dir;
    ReservedPort m_agentPort;
    quint64 m_fireType;
};
