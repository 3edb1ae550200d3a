#include "RunStateTables.h"

#include "ScheduleHealth.h"

#include "framework/Clock.h"
#include "framework/Logger.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace {
// A column a change does not touch is bound as NULL and keeps its value.
constexpr const char* kUpsert =
    "INSERT INTO runs (plan_uuid, trigger_type, next_start, end_flag, last_due, last_handed, result, "
    "result_at, next_ms, next_offset, repeat_count, start_offset, first_seek, filled_start, fingerprint) "
    "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT(plan_uuid) DO UPDATE SET "
    "trigger_type = coalesce(excluded.trigger_type, trigger_type),"
    "next_start = coalesce(excluded.next_start, next_start),"
    "end_flag = coalesce(excluded.end_flag, end_flag),"
    "last_due = coalesce(excluded.last_due, last_due),"
    "last_handed = coalesce(excluded.last_handed, last_handed),"
    "result = coalesce(excluded.result, result),"
    "result_at = coalesce(excluded.result_at, result_at),"
    "next_ms = coalesce(excluded.next_ms, next_ms),"
    "next_offset = coalesce(excluded.next_offset, next_offset),"
    "repeat_count = coalesce(excluded.repeat_count, repeat_count),"
    "start_offset = coalesce(excluded.start_offset, start_offset),"
    "first_seek = coalesce(excluded.first_seek, first_seek),"
    "filled_start = coalesce(excluded.filled_start, filled_start),"
    "fingerprint = coalesce(excluded.fingerprint, fingerprint)";

struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

// Null when the statement cannot be prepared.
Statement Prepare(sqlite3* handle, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return Statement();
    }
    return Statement(statement);
}

bool Exec(sqlite3* handle, const char* sql) {
    return sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void BindText(sqlite3_stmt* statement, int index, const QString& text) {
    // The text outlives the step that reads it.
    sqlite3_bind_text16(statement, index, text.utf16(), text.size() * 2, SQLITE_STATIC);
}

QString ColumnText(sqlite3_stmt* statement, int column) {
    const auto* text = static_cast<const QChar*>(sqlite3_column_text16(statement, column));
    return QString(text, sqlite3_column_bytes16(statement, column) / 2);
}

bool Step(sqlite3_stmt* statement) {
    const int status = sqlite3_step(statement);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return status == SQLITE_DONE;
}

bool WriteUpdate(sqlite3_stmt* upsert, sqlite3_stmt* remove, const QString& planUuid,
                 const RunStateUpdate& u) {
    if (u.removeFirst) {
        BindText(remove, 1, planUuid);
        if (!Step(remove)) {
            return false;
        }
    }
    if (!(u.run || u.schedule || u.result)) {
        return true;
    }
    // A column left unbound is NULL (Step clears the bindings) and keeps its
    // stored value.
    BindText(upsert, 1, planUuid);
    if (u.run || u.schedule) {
        sqlite3_bind_int64(upsert, 2, static_cast<qint64>(u.triggerType));
    }
    if (u.schedule) {
        const RunStateRecorder::Schedule& kept = *u.schedule;
        BindText(upsert, 3, kept.nextStart);
        sqlite3_bind_int64(upsert, 4, static_cast<qint64>(kept.endFlag));
        sqlite3_bind_int64(upsert, 9, kept.nextStartMSecs);
        sqlite3_bind_int(upsert, 10, kept.nextStartOffsetSecs);
        sqlite3_bind_int64(upsert, 11, static_cast<qint64>(kept.repeatCount));
        sqlite3_bind_int64(upsert, 12, static_cast<qint64>(kept.startOffsetSecs));
        sqlite3_bind_int64(upsert, 13, static_cast<qint64>(kept.firstSeekDone));
        BindText(upsert, 14, kept.filledStart);
        sqlite3_bind_int64(upsert, 15, static_cast<qint64>(kept.fingerprint));
    }
    if (u.run) {
        BindText(upsert, 5, u.run->due);
        sqlite3_bind_int64(upsert, 6, u.run->handedMSecs);
    }
    if (u.result) {
        sqlite3_bind_int64(upsert, 7, static_cast<qint64>(u.result->code));
        sqlite3_bind_int64(upsert, 8, u.result->atMSecs);
    }
    return Step(upsert);
}

// A row of a batch with the first eight code units of its plan UUID packed
// into two numbers: most comparisons of the sort end there, without reaching
// for the text itself.
struct BatchRow {
    quint64 head = 0;
    quint64 tail = 0;
    RunStateBatch::const_iterator it;

    bool operator<(const BatchRow& other) const {
        if (head != other.head) {
            return head < other.head;
        }
        if (tail != other.tail) {
            return tail < other.tail;
        }
        return it.key() < other.it.key();
    }
};

quint64 Pack(const QString& text, int from) {
    quint64 packed = 0;
    for (int i = from; i < from + 4; ++i) {
        packed = (packed << 16) | (i < text.size() ? text.at(i).unicode() : 0);
    }
    return packed;
}

// In key order the rows go to neighbouring pages of the table, which makes a
// large batch several times cheaper to write than in hash order.
std::vector<BatchRow> InKeyOrder(const RunStateBatch& batch) {
    std::vector<BatchRow> rows;
    rows.reserve(static_cast<size_t>(batch.size()));
    for (auto it = batch.constBegin(); it != batch.constEnd(); ++it) {
        rows.push_back(BatchRow{Pack(it.key(), 0), Pack(it.key(), 4), it});
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}
} // namespace

void RunStateTables::Attach(sqlite3* handle, const QString& path, const RunHistory::Limits& limits) {
    Detach();
    m_handle = handle;
    m_path = path;
    m_reportedWriteFailure = false;
    if (m_handle != nullptr && !m_history.Prepare(m_handle, limits)) {
        Logger::Warn(QString("The run history in %1 cannot be kept (%2).")
                         .arg(path, QString::fromUtf8(sqlite3_errmsg(m_handle))));
    }
}

void RunStateTables::Detach() {
    m_history.Detach();
    m_handle = nullptr;
}

bool RunStateTables::Write(const RunStateBatch& batch) {
    qint64 writtenAt = 0;
    if (m_handle != nullptr && Exec(m_handle, "BEGIN") && WriteRows(batch, writtenAt) &&
        Exec(m_handle, "COMMIT")) {
        m_writtenAtMSecs = writtenAt;
        m_reportedWriteFailure = false;
        return true;
    }
    const QString problem =
        m_handle != nullptr ? QString::fromUtf8(sqlite3_errmsg(m_handle)) : QString("no connection");
    // A rollback that fails leaves the transaction open; the next batch's
    // BEGIN then fails and says so.
    if (m_handle != nullptr) {
        Exec(m_handle, "ROLLBACK");
    }
    m_history.Forget();
    if (!m_reportedWriteFailure) {
        Logger::Warn(QString("The run state of %1 plans could not be written to %2 (%3).")
                         .arg(batch.size())
                         .arg(m_path, problem));
        m_reportedWriteFailure = true;
    }
    return false;
}

// Inside the open transaction; the time it records becomes the file's once
// the transaction commits.
bool RunStateTables::WriteRows(const RunStateBatch& batch, qint64& writtenAt) {
    const Statement upsert = Prepare(m_handle, kUpsert);
    const Statement remove = Prepare(m_handle, "DELETE FROM runs WHERE plan_uuid = ?");
    const Statement meta =
        Prepare(m_handle, "INSERT OR REPLACE INTO meta (key, value) VALUES ('written_at', ?)");
    bool ok = upsert && remove && meta;
    const std::vector<BatchRow> rows = ok ? InKeyOrder(batch) : std::vector<BatchRow>();
    for (auto row = rows.cbegin(); ok && row != rows.cend(); ++row) {
        ok = WriteUpdate(upsert.get(), remove.get(), row->it.key(), row->it.value()) &&
             m_history.Write(row->it.key(), row->it.value().history);
    }
    if (!ok || !m_history.Prune(Clock::nowMSecsSinceEpoch())) {
        return false;
    }
    writtenAt = Clock::nowMSecsSinceEpoch();
    sqlite3_bind_int64(meta.get(), 1, writtenAt);
    return Step(meta.get());
}

RunStateTables::Summary RunStateTables::EarliestStart() {
    const Statement earliest =
        Prepare(m_handle, "SELECT plan_uuid, min(next_start) FROM runs WHERE next_start > ''");
    if (!earliest || sqlite3_step(earliest.get()) != SQLITE_ROW) {
        ReportReadFailure("the next start");
        return Summary{};
    }
    return Summary{ColumnText(earliest.get(), 0), ColumnText(earliest.get(), 1)};
}

// Read through the raw handle: at a million plans Qt SQL's value conversions
// would cost seconds.
void RunStateTables::LoadHealth(ScheduleHealth& health) {
    health.Clear();
    m_writtenAtMSecs = 0;
    if (m_handle == nullptr) {
        return;
    }
    const Statement rows = Prepare(m_handle, "SELECT plan_uuid, trigger_type, next_start, end_flag, "
                                             "last_handed, result, result_at FROM runs");
    int status = SQLITE_ERROR;
    while (rows && (status = sqlite3_step(rows.get())) == SQLITE_ROW) {
        sqlite3_stmt* row = rows.get();
        health.Put(ColumnText(row, 0), static_cast<quint64>(sqlite3_column_int64(row, 1)), ColumnText(row, 2),
                   static_cast<quint64>(sqlite3_column_int64(row, 3)), sqlite3_column_int64(row, 4),
                   sqlite3_column_type(row, 5) != SQLITE_NULL,
                   static_cast<quint64>(sqlite3_column_int64(row, 5)), sqlite3_column_int64(row, 6));
    }
    if (status != SQLITE_DONE) {
        ReportReadFailure("the plans' health");
    }
    const Statement written = Prepare(m_handle, "SELECT value FROM meta WHERE key = 'written_at'");
    status = written ? sqlite3_step(written.get()) : SQLITE_ERROR;
    if (status == SQLITE_ROW) {
        m_writtenAtMSecs = sqlite3_column_int64(written.get(), 0);
    } else if (status != SQLITE_DONE) {
        ReportReadFailure("the time of the last write");
    }
}

void RunStateTables::ReportReadFailure(const char* what) {
    Logger::Warn(QString("The run state file %1 cannot be read for %2 (%3).")
                     .arg(m_path, what, QString::fromUtf8(sqlite3_errmsg(m_handle))));
}
