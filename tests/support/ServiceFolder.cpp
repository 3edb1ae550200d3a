#include "ServiceFolder.h"

#include "framework/DatabaseFunctionOperation.h"
#include "framework/TriggerAttribute.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>

ServiceFolder::ServiceFolder(quint64 fireType) : m_schedulerPort(FreePort()), m_agentPort(FreePort()) {
    QDir(m_dir.path()).mkpath("cfg");
    QDir(m_dir.path()).mkpath("data");
    WriteConfig(fireType);
}

quint16 ServiceFolder::FreePort() {
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return server.serverPort();
}

void ServiceFolder::WriteConfig(quint64 fireType) {
    QFile file(Path("cfg/config.ini"));
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(
        QString("[Communication]\nAgentLocalServerName=127.0.0.1\nAgentPort=%1\n"
                "SchedulerLocalServerName=127.0.0.1\nSchedulerPort=%2\n[Scheduler]\nDateTimeFireType=%3\n")
            .arg(m_agentPort)
            .arg(m_schedulerPort)
            .arg(fireType)
            .toUtf8());
}

void ServiceFolder::RemoveConfig() {
    QFile::remove(Path("cfg/config.ini"));
}

void ServiceFolder::StorePlan(const QString& planUuid, quint64 type, const QString& start) {
    DatabaseFunctionOperation database;
    QString error;
    database.OpenForWriting(Path("data/alldb.db"), error);
    TriggerAttribute attribute;
    attribute.setTriggerType(type);
    attribute.setStartTime(start);
    database.StoreTrigger(planUuid, QString(), attribute, error);
}
