#include "RunStateReader.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace {
constexpr const char* kSelect = "SELECT plan_uuid, trigger_type, next_start, end_flag, last_due, "
                                "last_handed, result, result_at FROM runs";
constexpr const char* kOrder = " ORDER BY coalesce(next_start, '') = '', next_start, plan_uuid";
} // namespace

// Named after the reader itself: a name is free again once its reader, which
// removes its connection, is gone.
RunStateReader::RunStateReader()
    : m_connectionName(QString("orvel-state-reader-%1").arg(reinterpret_cast<quintptr>(this), 0, 16)) {}

RunStateReader::~RunStateReader() {
    if (!m_open) {
        return;
    }
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connectionName);
}

bool RunStateReader::Open(const QString& path, QString& error) {
    if (!QFile::exists(path)) {
        error = "no such file";
        return false;
    }
    QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_connectionName);
    m_open = true;
    db.setDatabaseName(path);
    db.setConnectOptions("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=2000");
    if (!db.open()) {
        error = db.lastError().text();
        return false;
    }
    QSqlQuery probe(db);
    if (!probe.exec(QString("%1 LIMIT 1").arg(kSelect))) {
        error = probe.lastError().text();
        return false;
    }
    return true;
}

bool RunStateReader::Read(const QString& planUuid, QVector<Plan>& plans, QString& error) {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    query.setForwardOnly(true);
    query.prepare(QString(kSelect) + (planUuid.isEmpty() ? "" : " WHERE plan_uuid = ?") + kOrder);
    if (!planUuid.isEmpty()) {
        query.addBindValue(planUuid);
    }
    if (!query.exec()) {
        error = query.lastError().text();
        return false;
    }
    while (query.next()) {
        Plan plan;
        plan.planUuid = query.value(0).toString();
        plan.triggerType = query.value(1).toULongLong();
        plan.nextStart = query.value(2).toString();
        plan.endFlag = query.value(3).toULongLong();
        plan.lastDue = query.value(4).toString();
        plan.lastHandedMSecs = query.value(5).toLongLong();
        plan.hasResult = !query.value(6).isNull();
        plan.result = query.value(6).toULongLong();
        plan.resultMSecs = query.value(7).toLongLong();
        plans.push_back(plan);
    }
    return true;
}

qint64 RunStateReader::WrittenAtMSecs() {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    if (!query.exec("SELECT value FROM meta WHERE key = 'written_at'") || !query.next()) {
        return 0;
    }
    return query.value(0).toLongLong();
}
