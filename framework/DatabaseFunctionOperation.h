#pragma once

#include <QHash>
#include <QSqlError>
#include <QString>

#include <functional>

class QFileInfo;
class TriggerAttribute;

// The trigger table of data/alldb.db (SQLite through Qt SQL). The service only
// reads it; the suite's other processes and orvelctl write it through the
// writer operations below. Schema version 1:
//
//   CREATE TABLE triggers (plan_uuid TEXT PRIMARY KEY NOT NULL, plan_name TEXT,
//     trigger_type INTEGER, start_time TEXT, end_time TEXT, interval_secs INTEGER,
//     duration_secs INTEGER, week_days TEXT, months TEXT, month_days TEXT,
//     day_last_flag INTEGER, end_flag INTEGER);  PRAGMA user_version = 1;
class DatabaseFunctionOperation {
public:
    static constexpr int kSchemaVersion = 1;

    DatabaseFunctionOperation();
    ~DatabaseFunctionOperation();
    DatabaseFunctionOperation(const DatabaseFunctionOperation&) = delete;
    DatabaseFunctionOperation& operator=(const DatabaseFunctionOperation&) = delete;

    // Opens an existing file for reading; false when it is not a readable
    // SQLite database. Never writes a row; a hot journal of a crashed writer
    // is rolled back.
    bool Init(const QString& path);
    // Empty when a stored plan can be used; otherwise why not, for its log line.
    using RowCheck = std::function<QString(const QString& planUuid, const TriggerAttribute& attribute)>;

    // Fills the hash with heap attributes the caller owns; false when the
    // trigger table cannot be read. A row that cannot be read, or that the
    // check refuses, is skipped with one warn line naming the plan and why.
    bool LoadTriggerAttributes(QHash<QString, TriggerAttribute*>& attributes, const RowCheck& check = {});
    void UnInit();
    // Qt warns and keeps the connection when a handle to it is still alive at
    // removal, so the handle lives only inside this call.
    static void CloseConnection(const QString& connectionName);
    // Why Init or LoadTriggerAttributes last failed, in words ("it is not an
    // SQLite database"); empty after a success.
    QString Failure() const { return m_failure; }

    // Opens (creating if needed) the file for writing and ensures the schema.
    bool OpenForWriting(const QString& path, QString& error);
    // Writes the plan's row, replacing a stored one.
    bool StoreTrigger(const QString& planUuid, const QString& planName, const TriggerAttribute& attribute,
                      QString& error);
    // Writes the plan's row unless the plan is already stored.
    bool AddTrigger(const QString& planUuid, const QString& planName, const TriggerAttribute& attribute,
                    QString& error);
    bool RemoveTrigger(const QString& planUuid, QString& error);

private:
    bool Open(const QString& name, const QString& options, QString& error);
    bool Exec(const char* statement);
    QString Reason(const QFileInfo& file) const;
    bool WriteTrigger(const char* onConflict, const QString& planUuid, const QString& planName,
                      const TriggerAttribute& attribute, QString& error);

    QString m_connectionName;
    bool m_open = false;
    QString m_path;
    QSqlError m_lastError;
    QString m_failure;
};
