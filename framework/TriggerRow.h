#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

class TriggerAttribute;
struct sqlite3_stmt;

// One row of the trigger table as the service reads it, in the column order of
// kSelect, turned into the plan UUID and its trigger definition. Bytes from the
// file are not trusted: a field that does not hold what its column promises
// makes the row unreadable instead of becoming some number.
class TriggerRow {
public:
    static constexpr const char* kSelect =
        "SELECT plan_uuid, trigger_type, start_time, end_time, interval_secs, duration_secs, week_days, "
        "months, month_days, day_last_flag, end_flag FROM triggers";
    static constexpr int kColumns = 11;

    // Empty when every field could be read; otherwise names the column at fault.
    // One row's values in column order. A vector, not a QVariantList: a list
    // allocates each QVariant on its own, twelve blocks a row of a million.
    using Values = QVector<QVariant>;

    static QString Read(const Values& row, QString& planUuid, TriggerAttribute& attribute);
    // Reads the current row of a kSelect statement when it has the form every
    // writer of the table gives it: a plan UUID, numbers as integers from 0 up
    // or NULL, texts as texts or NULL. Such a row reads as Read reads it, but
    // without a QVariant a column, which cost the loading a third of its
    // reading. False for any other row, which is left for Read to judge; the
    // attribute is then untouched.
    static bool ReadPlain(sqlite3_stmt* statement, QString& planUuid, TriggerAttribute& attribute);
    // A text column of the current row, from the stored UTF-8.
    static QString ColumnText(sqlite3_stmt* statement, int column);

private:
    static bool ReadUnsigned(const QVariant& value, quint64& out);
    static bool ReadText(const QVariant& value, QString& out);
    static bool IsPlain(sqlite3_stmt* statement);
};
