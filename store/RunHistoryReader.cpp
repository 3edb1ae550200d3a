#include "RunHistoryReader.h"

#include <QFile>
#include <QHash>
#include <QStringList>

#include <sqlite3.h>

namespace {
constexpr const char* kColumns = "SELECT h.due, h.handed, h.kind, h.detail, h.merged, h.result, h.result_at, "
                                 "p.plan_uuid FROM history h JOIN history_plans p ON p.id = h.plan";
constexpr int kOutcomeCount = 8;

QString Text(sqlite3_stmt* statement, int column) {
    const auto* text = static_cast<const QChar*>(sqlite3_column_text16(statement, column));
    return QString(text, sqlite3_column_bytes16(statement, column) / 2);
}

bool IsNull(sqlite3_stmt* statement, int column) {
    return sqlite3_column_type(statement, column) == SQLITE_NULL;
}

RunHistoryReader::Row ReadRow(sqlite3_stmt* statement) {
    RunHistoryReader::Row row;
    row.dueMSecs = sqlite3_column_int64(statement, 0) * 1000;
    if (!IsNull(statement, 1)) {
        row.handedMSecs = row.dueMSecs + sqlite3_column_int64(statement, 1);
    }
    const int kind = sqlite3_column_int(statement, 2);
    row.outcome = static_cast<RunHistory::Outcome>(kind / 16);
    row.reason = static_cast<RunHistory::Reason>(kind % 16);
    row.detail = sqlite3_column_int64(statement, 3);
    row.merged = sqlite3_column_int(statement, 4);
    row.hasResult = !IsNull(statement, 5);
    row.result = sqlite3_column_int64(statement, 5);
    if (row.hasResult && !IsNull(statement, 6) && row.handedMSecs >= 0) {
        row.resultMSecs = row.handedMSecs + sqlite3_column_int64(statement, 6);
    }
    row.planUuid = Text(statement, 7);
    return row;
}

// The condition for an --outcome name, or empty when the name is unknown.
QString OutcomeCondition(const QString& name) {
    if (name == "refused") {
        return "h.result = 1";
    }
    if (name == "no-answer") {
        return "h.result = -1";
    }
    for (int outcome = 1; outcome <= kOutcomeCount; ++outcome) {
        if (RunHistory::OutcomeName(static_cast<RunHistory::Outcome>(outcome)).replace(' ', '-') == name) {
            return QString("h.kind >= %1 AND h.kind < %2").arg(outcome * 16).arg(outcome * 16 + 16);
        }
    }
    return QString();
}

struct Query {
    sqlite3_stmt* statement = nullptr;
    ~Query() { sqlite3_finalize(statement); }
};
} // namespace

RunHistoryReader::~RunHistoryReader() {
    sqlite3_close(m_handle);
}

bool RunHistoryReader::Open(const QString& path, QString& error) {
    if (!QFile::exists(path)) {
        error = "no such file";
        return false;
    }
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_handle, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(m_handle));
        return false;
    }
    sqlite3_busy_timeout(m_handle, 2000);
    Query probe;
    if (sqlite3_prepare_v2(m_handle, (QString(kColumns) + " LIMIT 1").toUtf8().constData(), -1,
                           &probe.statement, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(m_handle));
        return false;
    }
    return true;
}

bool RunHistoryReader::Read(const Filter& filter, QVector<Row>& rows, QString& error) {
    QStringList conditions;
    if (!filter.planUuid.isEmpty()) {
        // By number, so that the plan's own index answers.
        conditions << "h.plan = (SELECT id FROM history_plans WHERE plan_uuid = ?1)";
    }
    if (filter.sinceMSecs != 0) {
        conditions << "h.due >= ?2";
    }
    if (!filter.outcome.isEmpty()) {
        const QString condition = OutcomeCondition(filter.outcome);
        if (condition.isEmpty()) {
            error = QString("unknown outcome '%1'").arg(filter.outcome);
            return false;
        }
        conditions << condition;
    }
    QString sql = kColumns;
    if (!conditions.isEmpty()) {
        sql += " WHERE " + conditions.join(" AND ");
    }
    // The key's own order, read backwards: no sort of the rows found.
    sql += QString(" ORDER BY h.due DESC, h.plan DESC LIMIT %1").arg(filter.limit);
    Query query;
    if (sqlite3_prepare_v2(m_handle, sql.toUtf8().constData(), -1, &query.statement, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(m_handle));
        return false;
    }
    if (!filter.planUuid.isEmpty()) {
        sqlite3_bind_text16(query.statement, 1, filter.planUuid.utf16(), filter.planUuid.size() * 2,
                            SQLITE_TRANSIENT);
    }
    if (filter.sinceMSecs != 0) {
        sqlite3_bind_int64(query.statement, 2, (filter.sinceMSecs + 999) / 1000);
    }
    int status = SQLITE_ROW;
    while ((status = sqlite3_step(query.statement)) == SQLITE_ROW) {
        rows.push_back(ReadRow(query.statement));
    }
    if (status != SQLITE_DONE) {
        error = QString::fromUtf8(sqlite3_errmsg(m_handle));
        return false;
    }
    return true;
}

bool RunHistoryReader::ReadNewest(QHash<QString, Row>& rows, QString& error) {
    // Plan by plan, one look into the plan index each: left to itself, the
    // planner walked every row (15 s at 5,000,000 rows instead of 0.2 s).
    const QString sql =
        "SELECT h.due, h.handed, h.kind, h.detail, h.merged, h.result, h.result_at, p.plan_uuid "
        "FROM history_plans p CROSS JOIN history h ON h.plan = p.id AND h.due = "
        "(SELECT max(due) FROM history WHERE plan = p.id)";
    Query query;
    if (sqlite3_prepare_v2(m_handle, sql.toUtf8().constData(), -1, &query.statement, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(m_handle));
        return false;
    }
    while (sqlite3_step(query.statement) == SQLITE_ROW) {
        const Row row = ReadRow(query.statement);
        rows.insert(row.planUuid, row);
    }
    return true;
}

bool RunHistoryReader::ReadPlans(QStringList& plans, QString& error) {
    Query query;
    if (sqlite3_prepare_v2(m_handle, "SELECT plan_uuid FROM history_plans ORDER BY plan_uuid", -1,
                           &query.statement, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(m_handle));
        return false;
    }
    while (sqlite3_step(query.statement) == SQLITE_ROW) {
        plans << Text(query.statement, 0);
    }
    return true;
}

QStringList RunHistoryReader::OutcomeNames() {
    QStringList names;
    for (int outcome = 1; outcome <= kOutcomeCount; ++outcome) {
        names << RunHistory::OutcomeName(static_cast<RunHistory::Outcome>(outcome)).replace(' ', '-');
    }
    return names << "refused"
                 << "no-answer";
}
