#include "DatabaseFunctionOperation.h"

#include "Logger.h"
#include "TriggerAttribute.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <atomic>

namespace {
std::atomic<int> g_connectionSequence{0};

constexpr const char* kCreateTable = "CREATE TABLE IF NOT EXISTS triggers ("
                                     "plan_uuid TEXT PRIMARY KEY NOT NULL,"
                                     "plan_name TEXT NOT NULL DEFAULT '',"
                                     "trigger_type INTEGER NOT NULL DEFAULT 0,"
                                     "start_time TEXT NOT NULL DEFAULT '',"
                                     "end_time TEXT NOT NULL DEFAULT '',"
                                     "interval_secs INTEGER NOT NULL DEFAULT 0,"
                                     "duration_secs INTEGER NOT NULL DEFAULT 0,"
                                     "week_days TEXT NOT NULL DEFAULT '',"
                                     "months TEXT NOT NULL DEFAULT '',"
                                     "month_days TEXT NOT NULL DEFAULT '',"
                                     "day_last_flag INTEGER NOT NULL DEFAULT 0,"
                                     "end_flag INTEGER NOT NULL DEFAULT 0)";

constexpr const char* kSelect = "SELECT plan_uuid, trigger_type, start_time, end_time, interval_secs, "
                                "duration_secs, week_days, months, month_days, day_last_flag, end_flag "
                                "FROM triggers";

// A null text would bind as SQL NULL, which the NOT NULL columns refuse.
QString Text(const QString& text) {
    return text.isNull() ? QStringLiteral("") : text;
}

bool ReadUnsigned(const QVariant& value, quint64& out) {
    bool ok = false;
    out = value.toULongLong(&ok);
    return ok || value.isNull();
}

TriggerAttribute* ReadRow(const QSqlQuery& query) {
    auto* attribute = new TriggerAttribute();
    quint64 numbers[5] = {};
    const int numberColumns[5] = {1, 4, 5, 9, 10};
    for (int i = 0; i < 5; ++i) {
        if (!ReadUnsigned(query.value(numberColumns[i]), numbers[i])) {
            delete attribute;
            return nullptr;
        }
    }
    attribute->setTriggerType(numbers[0]);
    attribute->setInterval(numbers[1]);
    attribute->setDuration(numbers[2]);
    attribute->setDayLastFlag(numbers[3]);
    attribute->setTriggerEndFlag(numbers[4]);
    attribute->setStartTime(query.value(2).toString());
    attribute->setEndTime(query.value(3).toString());
    attribute->setWeekDays(query.value(6).toString());
    attribute->setWhichMoths(query.value(7).toString());
    attribute->setMonthDays(query.value(8).toString());
    return attribute;
}
} // namespace

DatabaseFunctionOperation::DatabaseFunctionOperation()
    : m_connectionName(QString("orvel-db-%1").arg(++g_connectionSequence)) {}

DatabaseFunctionOperation::~DatabaseFunctionOperation() {
    UnInit();
}

bool DatabaseFunctionOperation::Open(const QString& path, const QString& options, QString& error) {
    UnInit();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_connectionName);
        db.setDatabaseName(path);
        db.setConnectOptions(options);
        m_open = true;
        if (!db.open()) {
            error = db.lastError().text();
            return false;
        }
        // SQLite opens lazily: the first statement tells whether this is a database.
        QSqlQuery query(db);
        if (!query.exec("PRAGMA user_version") || !query.next()) {
            error = query.lastError().text();
            return false;
        }
    }
    return true;
}

bool DatabaseFunctionOperation::Init(const QString& path) {
    QString error;
    if (!Open(path, "QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=5000", error)) {
        Logger::Debug(QString("Cannot open %1 as a database: %2").arg(path, error));
        UnInit();
        return false;
    }
    return true;
}

bool DatabaseFunctionOperation::LoadTriggerAttributes(QHash<QString, TriggerAttribute*>& attributes) {
    if (!m_open) {
        return false;
    }
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    query.setForwardOnly(true);
    if (!query.exec(kSelect)) {
        Logger::Debug(QString("Cannot read the trigger table: %1").arg(query.lastError().text()));
        return false;
    }
    while (query.next()) {
        const QString planUuid = query.value(0).toString();
        TriggerAttribute* attribute = planUuid.isEmpty() ? nullptr : ReadRow(query);
        if (attribute == nullptr) {
            Logger::Warn(QString("Skipped a stored trigger that cannot be read (plan [%1]).").arg(planUuid));
            continue;
        }
        delete attributes.value(planUuid, nullptr);
        attributes.insert(planUuid, attribute);
    }
    return true;
}

void DatabaseFunctionOperation::UnInit() {
    if (!m_open) {
        return;
    }
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(m_connectionName);
    m_open = false;
}

bool DatabaseFunctionOperation::OpenForWriting(const QString& path, QString& error) {
    if (!Open(path, "QSQLITE_BUSY_TIMEOUT=5000", error)) {
        UnInit();
        return false;
    }
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    if (!query.exec(kCreateTable) || !query.exec(QString("PRAGMA user_version = %1").arg(kSchemaVersion))) {
        error = query.lastError().text();
        UnInit();
        return false;
    }
    return true;
}

bool DatabaseFunctionOperation::StoreTrigger(const QString& planUuid, const QString& planName,
                                             const TriggerAttribute& attribute, QString& error) {
    return WriteTrigger("REPLACE", planUuid, planName, attribute, error);
}

bool DatabaseFunctionOperation::AddTrigger(const QString& planUuid, const QString& planName,
                                           const TriggerAttribute& attribute, QString& error) {
    return WriteTrigger("IGNORE", planUuid, planName, attribute, error);
}

bool DatabaseFunctionOperation::WriteTrigger(const char* onConflict, const QString& planUuid,
                                             const QString& planName, const TriggerAttribute& attribute,
                                             QString& error) {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    query.prepare(
        QString("INSERT OR %1 INTO triggers (plan_uuid, plan_name, trigger_type, start_time, end_time, "
                "interval_secs, duration_secs, week_days, months, month_days, day_last_flag, end_flag) "
                "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
            .arg(onConflict));
    const QVariantList values = {planUuid,
                                 Text(planName),
                                 attribute.getTriggerType(),
                                 Text(attribute.getStartTime()),
                                 Text(attribute.getEndTime()),
                                 attribute.getInterval(),
                                 attribute.getDuration(),
                                 Text(attribute.getWeekDays()),
                                 Text(attribute.getWhichMoths()),
                                 Text(attribute.getMonthDays()),
                                 attribute.getDayLastFlag(),
                                 attribute.getTriggerEndFlag()};
    for (const QVariant& value : values) {
        query.addBindValue(value);
    }
    if (!query.exec()) {
        error = query.lastError().text();
        return false;
    }
    return true;
}

bool DatabaseFunctionOperation::RemoveTrigger(const QString& planUuid, QString& error) {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    query.prepare("DELETE FROM triggers WHERE plan_uuid = ?");
    query.addBindValue(planUuid);
    if (!query.exec()) {
        error = query.lastError().text();
        return false;
    }
    return true;
}
