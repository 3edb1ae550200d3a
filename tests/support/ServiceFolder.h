#pragma once

#include "QtPrinters.h"

#include <QString>
#include <QTemporaryDir>

// A throw-away application folder: cfg/config.ini with ports the test chose,
// and data/ for the trigger database.
class ServiceFolder {
public:
    explicit ServiceFolder(quint64 fireType = 0);

    // With a trailing "/", as the service's application directory.
    QString Dir() const { return m_dir.path() + "/"; }
    QString Path(const QString& relative) const { return Dir() + relative; }
    quint16 schedulerPort() const { return m_schedulerPort; }
    quint16 agentPort() const { return m_agentPort; }
    void WriteConfig(quint64 fireType);
    void RemoveConfig();
    // Stores a plan in data/alldb.db, as orvelctl and the suite do.
    void StorePlan(const QString& planUuid, quint64 type, const QString& start = QString());

    static quint16 FreePort();

private:
    QTemporaryDir m_dir;
    quint16 m_schedulerPort;
    quint16 m_agentPort;
};
