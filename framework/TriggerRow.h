#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

class TriggerAttribute;

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

private:
    static bool ReadUnsigned(const QVariant& value, quint64& out);
    static bool ReadText(const QVariant& value, QString& out);
};
