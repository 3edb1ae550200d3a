#include "ServiceFolder.h"

#include "framework/DatabaseFunctionOperation.h"
#include "framework/TriggerAttribute.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

ServiceFolder::ServiceFolder(quint64 fireType) : m_fireType(fireType) {
    QDir(m_dir.path()).mkpath("cfg");
    QDir(m_dir.path()).mkpath("data");
    WriteConfig();
}

void ServiceFolder::WriteConfig(quint16 schedulerPort, quint16 agentPort) {
    QFile file(Path("cfg/config.ini"));
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(
        QString("[Communication]\nAgentLocalServerName=127.0.0.1\nAgentPort=%1\n"
                "SchedulerLocalServerName=127.0.0.1\nSchedulerPort=%2\n[Scheduler]\nDateTimeFireType=%3\n")
            .arg(agentPort != 0 ? agentPort : m_agentPort.port())
            .arg(schedulerPort)
            .arg(m_fireType)
            .toUtf8());
}

void ServiceFolder::RemoveConfig() {
    QFile::remove(Path("cfg/config.ini"));
}

void ServiceFolder::StorePlan(const QString& planUuid, quint64 type, const QString& start) {
    TriggerAttribute attribute;
    attribute.setTriggerType(type);
    attribute.setStartTime(start);
    StorePlan(planUuid, attribute);
}

void ServiceFolder::StorePlan(const QString& planUuid, const TriggerAttribute& attribute) {
    DatabaseFunctionOperation database;
    QString error;
    database.OpenForWriting(Path("data/alldb.db"), error);
    database.StoreTrigger(planUuid, QString(), attribute, error);
}

void ServiceFolder::SetMissedRunPolicy(const QString& policy, quint64 spreadSecs) {
    QFile file(Path("cfg/config.ini"));
    file.open(QIODevice::ReadWrite);
    const QByteArray lines = QString("[Scheduler]\nMissedRunPolicy=%1\nMissedRunSpreadSecs=%2\n")
                                 .arg(policy)
                                 .arg(spreadSecs)
                                 .toUtf8();
    const QByteArray text = file.readAll().replace("[Scheduler]\n", lines);
    file.resize(0);
    file.write(text);
}

void ServiceFolder::StoreDailyPlans(int count, const std::function<QString(int)>& startOf) {
    {
        DatabaseFunctionOperation schema;
        QString error;
        schema.OpenForWriting(Path("data/alldb.db"), error);
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "many");
        db.setDatabaseName(Path("data/alldb.db"));
        db.open();
        db.transaction();
        QSqlQuery insert(db);
        insert.prepare("INSERT INTO triggers (plan_uuid, trigger_type, start_time) VALUES (?, 2, ?)");
        for (int i = 0; i < count; ++i) {
            insert.addBindValue(QString("plan-%1").arg(i));
            insert.addBindValue(startOf(i));
            insert.exec();
        }
        db.commit();
    }
    QSqlDatabase::removeDatabase("many");
}
