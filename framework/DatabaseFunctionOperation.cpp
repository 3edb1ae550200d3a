#include "DatabaseFunctionOperation.h"

#include "LogText.h"
#include "Logger.h"
#include "SqliteHandle.h"
#include "StoredRowReader.h"
#include "TriggerAttribute.h"
#include "TriggerRow.h"

#include <QFileInfo>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>
#include <QVariant>

#include <sqlite3.h>

#include <memory>

namespace {
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

// A null text would bind as SQL NULL, which the NOT NULL columns refuse.
QString Text(const QString& text) {
    return text.isNull() ? QStringLiteral("") : text;
}

// A text of the row reader's, copied on this thread to be kept (a null text
// stays null).
QString OwnCopy(const QString& text) {
    return text.isNull() ? QString() : QString(text.constData(), text.size());
}

// Stored plans repeat the same calendar lists and end times; every plan keeps
// one shared copy of each equal text instead of its own.
void ShareEqualTexts(TriggerAttribute& attribute, QSet<QString>& pool) {
    const auto shared = [&pool](const QString& text) {
        const auto found = pool.constFind(text);
        if (found != pool.constEnd()) {
            return *found;
        }
        const QString kept = OwnCopy(text);
        pool.insert(kept);
        return kept;
    };
    attribute.setEndTime(shared(attribute.getEndTime()));
    attribute.setWeekDays(shared(attribute.getWeekDays()));
    attribute.setWhichMoths(shared(attribute.getWhichMoths()));
    attribute.setMonthDays(shared(attribute.getMonthDays()));
}

// Checked and kept on the caller's thread: the check logs, and the pool of
// shared texts and the result are the caller's. What lasts is copied here, so
// that the reader's rows go back whole to its own heap arena.
void Keep(const StoredRowReader::Row& row, const DatabaseFunctionOperation::RowCheck& check,
          QSet<QString>& texts, QHash<QString, TriggerAttribute*>& attributes) {
    QString fault = row.fault;
    if (fault.isEmpty() && check) {
        fault = check(row.planUuid, *row.attribute);
    }
    if (!fault.isEmpty()) {
        Logger::Warn(QString("Skipped the stored plan [%1]: %2.").arg(LogText::Outside(row.planUuid), fault));
        return;
    }
    auto attribute = std::make_unique<TriggerAttribute>(*row.attribute);
    ShareEqualTexts(*attribute, texts);
    TriggerAttribute*& kept = attributes[OwnCopy(row.planUuid)];
    delete kept;
    kept = attribute.release();
}
} // namespace

// Named after the object: no two live ones share an address, and the
// connection goes with its object.
DatabaseFunctionOperation::DatabaseFunctionOperation()
    : m_connectionName(QString("orvel-db-%1").arg(reinterpret_cast<quintptr>(this), 0, 16)) {}

DatabaseFunctionOperation::~DatabaseFunctionOperation() {
    UnInit();
}

bool DatabaseFunctionOperation::Open(const QString& name, const QString& options, QString& error) {
    UnInit();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_connectionName);
        db.setDatabaseName(name);
        db.setConnectOptions(options);
        m_open = true;
        if (!db.open()) {
            m_lastError = db.lastError();
            error = m_lastError.text();
            return false;
        }
        // SQLite opens lazily: the first statement tells whether this is a database.
        QSqlQuery query(db);
        if (!query.exec("PRAGMA user_version") || !query.next()) {
            m_lastError = query.lastError();
            error = m_lastError.text();
            return false;
        }
    }
    return true;
}

// Opened for writing as far as the file allows, so that SQLite can roll back
// the hot journal of a writer that died inside a transaction, as every SQLite
// reader does; query_only then keeps every statement of the service from
// changing the file. "mode=rw" never creates a file.
bool DatabaseFunctionOperation::Init(const QString& path) {
    m_failure.clear();
    m_path = path;
    const QFileInfo file(path);
    if (file.exists() && !file.isFile()) {
        m_failure = "it is not a regular file";
        return false;
    }
    const QString uri = QString("%1?mode=rw").arg(QUrl::fromLocalFile(file.absoluteFilePath()).toString());
    QString error;
    if (!Open(uri, "QSQLITE_OPEN_URI;QSQLITE_BUSY_TIMEOUT=5000", error) || !Exec("PRAGMA query_only = ON")) {
        m_failure = Reason(file);
        Logger::Debug(
            QString("Cannot open %1 as a database: %2").arg(path, LogText::Outside(m_lastError.text())));
        UnInit();
        return false;
    }
    return true;
}

bool DatabaseFunctionOperation::Exec(const char* statement) {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    if (!query.exec(statement)) {
        m_lastError = query.lastError();
        return false;
    }
    return true;
}

// The last SQLite error in words a user can act on.
QString DatabaseFunctionOperation::Reason(const QFileInfo& file) const {
    if (file.exists() && file.size() == 0) {
        return "the file is empty";
    }
    if (file.exists() && !file.isReadable()) {
        return "the service may not read it";
    }
    const QString text = m_lastError.databaseText();
    if (text.startsWith("no such table")) {
        return "it holds no trigger table";
    }
    if (text.startsWith("no such column")) {
        return QString("its trigger table lacks a column (%1)").arg(LogText::Outside(text));
    }
    switch (m_lastError.nativeErrorCode().toInt() & 0xff) {
    case 26: // SQLITE_NOTADB
        return "it is not an SQLite database";
    case 11: // SQLITE_CORRUPT
        return "the database is damaged";
    case 5: // SQLITE_BUSY
    case 6: // SQLITE_LOCKED
        return "another process has kept it locked for more than 5 seconds";
    case 8: // SQLITE_READONLY: a hot journal the service may not roll back
        return "a writer died while changing it, and the service may not write the file to roll that back";
    case 14: // SQLITE_CANTOPEN
        return "it cannot be opened";
    default:
        return QString("SQLite reports \"%1\"")
            .arg(LogText::Outside(text.isEmpty() ? m_lastError.text() : text));
    }
}

// Read through the connection's raw handle: at a million plans Qt SQL's
// cached rows and their conversions cost seconds of the start-up. The values
// reach the row check as Qt SQL would hand them over.
bool DatabaseFunctionOperation::LoadTriggerAttributes(QHash<QString, TriggerAttribute*>& attributes,
                                                      const RowCheck& check) {
    sqlite3* handle = m_open ? SqliteHandle::Of(m_connectionName) : nullptr;
    if (handle == nullptr) {
        return false;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(handle, TriggerRow::kSelect, -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        m_lastError = QSqlError(QString(), QString::fromUtf8(sqlite3_errmsg(handle)),
                                QSqlError::StatementError, QString::number(sqlite3_errcode(handle)));
        m_failure = Reason(QFileInfo(m_path));
        Logger::Debug(QString("Cannot read the trigger table: %1").arg(LogText::Outside(m_lastError.text())));
        return false;
    }
    QSet<QString> texts;
    {
        StoredRowReader reader(statement);
        std::vector<StoredRowReader::Row> batch;
        while (reader.Next(batch)) {
            for (const StoredRowReader::Row& row : batch) {
                Keep(row, check, texts, attributes);
            }
        }
    }
    sqlite3_finalize(statement);
    // The table is read whole once a start; its pages would otherwise stay in
    // the connection's cache (two megabytes by default) for the service's life.
    sqlite3_db_release_memory(handle);
    return true;
}

void DatabaseFunctionOperation::UnInit() {
    if (!m_open) {
        return;
    }
    CloseConnection(m_connectionName);
    m_open = false;
}

void DatabaseFunctionOperation::CloseConnection(const QString& connectionName) {
    {
        QSqlDatabase db = QSqlDatabase::database(connectionName, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(connectionName);
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
