#include "TriggerRow.h"

#include "TriggerAttribute.h"

#include <sqlite3.h>

namespace {
struct NumberColumn {
    int column;
    const char* name;
    void (TriggerAttribute::*set)(quint64);
};

struct TextColumn {
    int column;
    const char* name;
    void (TriggerAttribute::*set)(const QString&);
};

const NumberColumn kNumbers[] = {{1, "trigger_type", &TriggerAttribute::setTriggerType},
                                 {4, "interval_secs", &TriggerAttribute::setInterval},
                                 {5, "duration_secs", &TriggerAttribute::setDuration},
                                 {9, "day_last_flag", &TriggerAttribute::setDayLastFlag},
                                 {10, "end_flag", &TriggerAttribute::setTriggerEndFlag}};

const TextColumn kTexts[] = {{2, "start_time", &TriggerAttribute::setStartTime},
                             {3, "end_time", &TriggerAttribute::setEndTime},
                             {6, "week_days", &TriggerAttribute::setWeekDays},
                             {7, "months", &TriggerAttribute::setWhichMoths},
                             {8, "month_days", &TriggerAttribute::setMonthDays}};

QString Unreadable(const char* column) {
    return QString("its %1 cannot be read").arg(column);
}
} // namespace

// NULL reads as 0, as the columns' default would have it. SQLite keeps a text
// it cannot store as an integer as text, so "often" or "-1" arrive here.
bool TriggerRow::ReadUnsigned(const QVariant& value, quint64& out) {
    out = 0;
    if (value.isNull()) {
        return true;
    }
    bool ok = false;
    switch (value.userType()) {
    case QMetaType::LongLong:
    case QMetaType::Int: {
        const qlonglong number = value.toLongLong(&ok);
        out = static_cast<quint64>(number);
        return ok && number >= 0;
    }
    case QMetaType::ULongLong:
    case QMetaType::UInt:
        out = value.toULongLong(&ok);
        return ok;
    case QMetaType::QString: {
        const QString text = value.toString().trimmed();
        out = text.toULongLong(&ok, 10);
        return ok && !text.isEmpty() && text.front().isDigit();
    }
    default:
        return false;
    }
}

bool TriggerRow::ReadText(const QVariant& value, QString& out) {
    if (value.isNull()) {
        out = QString();
        return true;
    }
    // A writer whose columns lack the text affinity may have kept a week day as an integer.
    const int type = value.userType();
    if (type != QMetaType::QString && type != QMetaType::QByteArray && type != QMetaType::LongLong &&
        type != QMetaType::Int) {
        return false;
    }
    out = value.toString();
    return true;
}

QString TriggerRow::Read(const Values& row, QString& planUuid, TriggerAttribute& attribute) {
    if (row.size() != kColumns) {
        return QString("it has %1 columns, not %2").arg(row.size()).arg(kColumns);
    }
    if (!ReadText(row.at(0), planUuid) || planUuid.isEmpty()) {
        return Unreadable("plan_uuid");
    }
    for (const NumberColumn& c : kNumbers) {
        quint64 value = 0;
        if (!ReadUnsigned(row.at(c.column), value)) {
            return Unreadable(c.name);
        }
        (attribute.*c.set)(value);
    }
    for (const TextColumn& c : kTexts) {
        QString value;
        if (!ReadText(row.at(c.column), value)) {
            return Unreadable(c.name);
        }
        (attribute.*c.set)(value);
    }
    return QString();
}

bool TriggerRow::IsPlain(sqlite3_stmt* statement) {
    if (sqlite3_column_count(statement) != kColumns || sqlite3_column_type(statement, 0) != SQLITE_TEXT) {
        return false;
    }
    for (const NumberColumn& c : kNumbers) {
        const int type = sqlite3_column_type(statement, c.column);
        if (type == SQLITE_NULL) {
            continue;
        }
        if (type != SQLITE_INTEGER || sqlite3_column_int64(statement, c.column) < 0) {
            return false;
        }
    }
    for (const TextColumn& c : kTexts) {
        const int type = sqlite3_column_type(statement, c.column);
        if (type != SQLITE_TEXT && type != SQLITE_NULL) {
            return false;
        }
    }
    return true;
}

bool TriggerRow::ReadPlain(sqlite3_stmt* statement, QString& planUuid, TriggerAttribute& attribute) {
    if (!IsPlain(statement)) {
        return false;
    }
    planUuid = ColumnText(statement, 0);
    if (planUuid.isEmpty()) {
        return false;
    }
    // sqlite3_column_int64 reads NULL as 0, as Read does.
    for (const NumberColumn& c : kNumbers) {
        (attribute.*c.set)(static_cast<quint64>(sqlite3_column_int64(statement, c.column)));
    }
    for (const TextColumn& c : kTexts) {
        const bool null = sqlite3_column_type(statement, c.column) == SQLITE_NULL;
        (attribute.*c.set)(null ? QString() : ColumnText(statement, c.column));
    }
    return true;
}

// From the stored UTF-8 itself: SQLite's own UTF-16 form (what Qt's driver
// reads) costs a conversion byte by byte and a buffer inside SQLite, a quarter
// of the reader's time. An ASCII text, nearly every one, is widened directly.
// The room a conversion may leave does not last: what is kept is copied on the
// caller's thread.
QString TriggerRow::ColumnText(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    const int size = sqlite3_column_bytes(statement, column);
    for (int i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(text[i]) >= 0x80) {
            return QString::fromUtf8(text, size);
        }
    }
    return QString::fromLatin1(text, size);
}
