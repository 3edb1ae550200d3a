#include "RunHistory.h"

#include "framework/LogText.h"
#include "framework/Logger.h"
#include "triggers/LocalTime.h"

#include <sqlite3.h>

#include <algorithm>

namespace {
constexpr qint64 kDayMSecs = 86400000;
// Trimming a plan to its count costs a look into the plan's rows, so it is
// done after the plan gained a fifth of its count (10 rows of 50) rather than
// after each row: a plan holds at most KeepPerPlan * 1.2 rows.
constexpr int kTrimShare = 5;
constexpr qint64 kAgePruneEveryMSecs = 60000;
constexpr qint64 kEndSeconds = 5;

// The writer hands out the numbers and keeps each plan's own, so the texts
// need no index of their own: keeping one cost a first poll a sixth of what
// the history adds to it, and the readers that look a text up scan the table
// in milliseconds. Files made with a UNIQUE text keep it.
constexpr const char* kCreatePlans =
    "CREATE TABLE IF NOT EXISTS history_plans (id INTEGER PRIMARY KEY, plan_uuid TEXT NOT NULL)";
// kind is outcome * 16 + reason; handed is ms after the start, result_at ms
// after the hand-over; result -1 means the next start came before an answer.
constexpr const char* kCreateHistory = "CREATE TABLE IF NOT EXISTS history ("
                                       "due INTEGER NOT NULL,"
                                       "plan INTEGER NOT NULL,"
                                       "handed INTEGER,"
                                       "kind INTEGER NOT NULL,"
                                       "detail INTEGER,"
                                       "merged INTEGER,"
                                       "result INTEGER,"
                                       "result_at INTEGER,"
                                       "PRIMARY KEY (due, plan)) WITHOUT ROWID";
constexpr const char* kCreateByPlan = "CREATE INDEX IF NOT EXISTS history_by_plan ON history (plan, due)";

// A later word on the same start replaces what an earlier one said of it (a
// missed start that is caught up), but keeps the agent's answer. A merged
// start never reached the agent; kind 0 only counts what a run merged.
constexpr const char* kInsertHead = "INSERT INTO history (due, plan, handed, kind, detail, merged)";
constexpr const char* kInsertTail =
    "ON CONFLICT(due, plan) DO UPDATE SET "
    "handed = CASE WHEN excluded.kind / 16 = 5 THEN NULL ELSE coalesce(excluded.handed, handed) END,"
    "result = CASE WHEN excluded.kind / 16 = 5 THEN NULL ELSE result END,"
    "kind = CASE WHEN excluded.kind = 0 THEN kind ELSE excluded.kind END,"
    "detail = coalesce(excluded.detail, detail),"
    "merged = CASE WHEN excluded.kind / 16 = 5 THEN NULL ELSE coalesce(excluded.merged, merged) END";
constexpr const char* kAnswerAwaited =
    "UPDATE history SET result = ?, result_at = ? - (due * 1000 + handed) WHERE due = ? AND plan = ?";
// An answer after a restart finds its hand-over in the file.
constexpr const char* kAnswerNewest =
    "UPDATE history SET result = ?1, result_at = ?2 - (due * 1000 + handed) WHERE plan = ?3 AND due = "
    "(SELECT max(due) FROM history WHERE plan = ?3 AND handed IS NOT NULL AND result IS NULL) RETURNING due";
constexpr const char* kTrimPlan = "DELETE FROM history WHERE plan = ?1 AND due < (SELECT due FROM history "
                                  "WHERE plan = ?1 ORDER BY due DESC LIMIT 1 OFFSET ?2 - 1)";
constexpr const char* kPruneAge = "DELETE FROM history WHERE due < ?";
constexpr const char* kProbe =
    "SELECT due, plan, handed, kind, detail, merged, result, result_at FROM history LIMIT 1";
constexpr const char* kPruneGonePlans =
    "DELETE FROM history_plans WHERE NOT EXISTS (SELECT 1 FROM history WHERE plan = history_plans.id)";

QString DueText(qint64 dueSecs) {
    return LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueSecs * 1000));
}

bool Done(sqlite3_stmt* statement) {
    const int status = sqlite3_step(statement);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return status == SQLITE_DONE;
}
} // namespace

RunHistory::RunHistory()
    : m_rows(kInsertHead, 6, kInsertTail), m_plans("INSERT INTO history_plans (id, plan_uuid)", 2, "") {}

bool RunHistory::Prepare(sqlite3* handle, const Limits& limits) {
    Detach();
    m_limits = limits;
    m_limits.keepPerPlan = qMax(1, m_limits.keepPerPlan);
    m_limits.keepDays = qMax(1, m_limits.keepDays);
    // Tables of another shape leave the history off rather than failing the
    // run state's batches, which carry it.
    for (const char* sql : {kCreatePlans, kCreateHistory, kCreateByPlan, kProbe, kPruneGonePlans}) {
        if (sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
            return false;
        }
    }
    m_handle = handle;
    m_rows.Attach(handle);
    m_plans.Attach(handle);
    return LoadPlans();
}

// The numbers of plans are handed out here rather than by SQLite, so that a
// new plan costs a buffered row instead of a statement of its own.
bool RunHistory::LoadPlans() {
    m_knownPlans.clear();
    m_lastPlanId = 0;
    sqlite3_stmt* plans = nullptr;
    if (sqlite3_prepare_v2(m_handle, "SELECT id, plan_uuid FROM history_plans", -1, &plans, nullptr) !=
        SQLITE_OK) {
        sqlite3_finalize(plans);
        return false;
    }
    int status = SQLITE_ROW;
    while ((status = sqlite3_step(plans)) == SQLITE_ROW) {
        const auto* text = static_cast<const QChar*>(sqlite3_column_text16(plans, 1));
        const qint64 id = sqlite3_column_int64(plans, 0);
        m_knownPlans.insert(QString(text, sqlite3_column_bytes16(plans, 1) / 2),
                            Plan{id, kNothingAwaited, 0});
        m_lastPlanId = qMax(m_lastPlanId, id);
    }
    sqlite3_finalize(plans);
    return status == SQLITE_DONE;
}

void RunHistory::Detach() {
    for (sqlite3_stmt* statement : qAsConst(m_statements)) {
        sqlite3_finalize(statement);
    }
    m_statements.clear();
    m_rows.Detach();
    m_plans.Detach();
    m_handle = nullptr;
    m_knownPlans.clear();
}

void RunHistory::Forget() {
    m_rows.Forget();
    m_plans.Forget();
    if (m_handle != nullptr && !LoadPlans()) {
        Detach();
    }
}

// Every other statement on the history sees the rows added before it.
bool RunHistory::WriteBuffered() {
    return m_plans.Write() && m_rows.Write();
}

// Null when the statement cannot be prepared; SQLite refuses to bind or step a
// null statement, so the write fails and the batch says so.
sqlite3_stmt* RunHistory::Statement(const char* sql) {
    if (sqlite3_stmt* kept = m_statements.value(sql, nullptr)) {
        return kept;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_handle, sql, -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return nullptr;
    }
    m_statements.insert(sql, statement);
    return statement;
}

RunHistory::Plan* RunHistory::PlanOf(const QString& planUuid, bool add) {
    const auto known = m_knownPlans.find(planUuid);
    if (known != m_knownPlans.end()) {
        return &known.value();
    }
    if (!add || !m_plans.Add({m_lastPlanId + 1, planUuid})) {
        return nullptr;
    }
    return &m_knownPlans.insert(planUuid, Plan{++m_lastPlanId, kNothingAwaited, 0}).value();
}

bool RunHistory::Write(const QString& planUuid, const Events& events) {
    if (m_handle == nullptr || events.isEmpty()) {
        return true;
    }
    const int occurrences = static_cast<int>(
        std::count_if(events.cbegin(), events.cend(), [](const Event& event) { return !event.answer; }));
    // An answer for a plan without a history has no row to land on.
    Plan* plan = PlanOf(planUuid, occurrences > 0);
    if (plan == nullptr) {
        return occurrences == 0;
    }
    for (const Event& event : events) {
        const bool ok = event.answer ? SetAnswer(*plan, planUuid, *event.answer)
                                     : Insert(*plan, planUuid, event.occurrence, events);
        if (!ok) {
            return false;
        }
    }
    plan->added += occurrences;
    if (plan->added < qMax(1, m_limits.keepPerPlan / kTrimShare)) {
        return true;
    }
    plan->added = 0;
    return WriteBuffered() && Bind(Statement(kTrimPlan), {plan->id, m_limits.keepPerPlan}) &&
           Done(Statement(kTrimPlan));
}

// An end takes the first free second from its own on, so that it never
// overwrites the run of the same second that ended the plan.
bool RunHistory::InsertEnd(qint64 planId, const Occurrence& occurrence) {
    sqlite3_stmt* insert =
        Statement("INSERT INTO history (due, plan, kind) VALUES (?, ?, ?) ON CONFLICT DO NOTHING");
    if (!WriteBuffered()) {
        return false;
    }
    for (qint64 dueSecs = occurrence.dueMSecs / 1000; dueSecs < occurrence.dueMSecs / 1000 + kEndSeconds;
         ++dueSecs) {
        if (!Bind(insert, {dueSecs, planId, static_cast<int>(occurrence.outcome) * 16}) || !Done(insert)) {
            return false;
        }
        if (sqlite3_changes(m_handle) > 0) {
            break;
        }
    }
    return true;
}

bool RunHistory::Insert(Plan& plan, const QString& planUuid, const Occurrence& occurrence,
                        const Events& batch) {
    if (occurrence.outcome == Outcome::Ended || occurrence.outcome == Outcome::Deleted) {
        return InsertEnd(plan.id, occurrence);
    }
    const qint64 dueSecs = occurrence.dueMSecs / 1000;
    const bool handed = occurrence.handedMSecs >= 0;
    if (handed && !CloseAwaited(plan, planUuid, dueSecs, batch)) {
        return false;
    }
    if (handed) {
        plan.awaitedDue = dueSecs;
    }
    const auto optional = [](qint64 value, bool present) { return present ? Value(value) : Value(); };
    return m_rows.Add({dueSecs, plan.id, optional(occurrence.handedMSecs - dueSecs * 1000, handed),
                       static_cast<int>(occurrence.outcome) * 16 + static_cast<int>(occurrence.reason),
                       optional(occurrence.detail, occurrence.detail != 0),
                       optional(occurrence.merged, occurrence.merged != 0)});
}

// A new hand-over of the plan ends the wait for the answer to the one before,
// unless that one never left because the new one replaced it.
bool RunHistory::CloseAwaited(Plan& plan, const QString& planUuid, qint64 dueSecs, const Events& batch) {
    const qint64 before = plan.awaitedDue;
    if (before == kNothingAwaited || before == dueSecs) {
        return true;
    }
    plan.awaitedDue = kNothingAwaited;
    for (const Event& other : batch) {
        if (!other.answer && other.occurrence.outcome == Outcome::Merged &&
            other.occurrence.dueMSecs / 1000 == before) {
            return true;
        }
    }
    sqlite3_stmt* update =
        Statement("UPDATE history SET result = -1 WHERE due = ? AND plan = ? AND result IS NULL");
    if (update == nullptr || !WriteBuffered()) {
        return false;
    }
    sqlite3_bind_int64(update, 1, before);
    sqlite3_bind_int64(update, 2, plan.id);
    if (!Done(update)) {
        return false;
    }
    if (sqlite3_changes(m_handle) > 0) {
        Logger::Warn(QString("Plan[%1] run for [%2] got no answer from the agent before its next start.")
                         .arg(LogText::Outside(planUuid), DueText(before)));
    }
    return true;
}

bool RunHistory::SetAnswer(Plan& plan, const QString& planUuid, const Answer& answer) {
    const bool known = plan.awaitedDue != kNothingAwaited;
    sqlite3_stmt* update = Statement(known ? kAnswerAwaited : kAnswerNewest);
    if (update == nullptr || !WriteBuffered()) {
        return false;
    }
    sqlite3_bind_int64(update, 1, static_cast<qint64>(answer.code));
    sqlite3_bind_int64(update, 2, answer.atMSecs);
    if (known) {
        sqlite3_bind_int64(update, 3, plan.awaitedDue);
        sqlite3_bind_int64(update, 4, plan.id);
    } else {
        sqlite3_bind_int64(update, 3, plan.id);
    }
    qint64 dueSecs = known ? plan.awaitedDue : 0;
    int status = sqlite3_step(update);
    if (!known && status == SQLITE_ROW) {
        dueSecs = sqlite3_column_int64(update, 0);
        status = sqlite3_step(update);
    }
    sqlite3_reset(update);
    sqlite3_clear_bindings(update);
    plan.awaitedDue = kNothingAwaited;
    if (status != SQLITE_DONE) {
        return false;
    }
    if (answer.code == 1 && dueSecs != 0) {
        Logger::Warn(QString("Plan[%1] run for [%2] was refused by the agent.")
                         .arg(LogText::Outside(planUuid), DueText(dueSecs)));
    }
    return true;
}

bool RunHistory::Prune(qint64 nowMSecs) {
    if (!WriteBuffered()) {
        return false;
    }
    if (m_handle == nullptr || (m_prunedAtMSecs != 0 && nowMSecs - m_prunedAtMSecs < kAgePruneEveryMSecs &&
                                nowMSecs >= m_prunedAtMSecs)) {
        return true;
    }
    m_prunedAtMSecs = nowMSecs;
    return Bind(Statement(kPruneAge), {(nowMSecs - m_limits.keepDays * kDayMSecs) / 1000}) &&
           Done(Statement(kPruneAge));
}

bool RunHistory::Bind(sqlite3_stmt* statement, std::initializer_list<qint64> values) {
    if (statement == nullptr) {
        return false;
    }
    int index = 0;
    for (const qint64 value : values) {
        sqlite3_bind_int64(statement, ++index, value);
    }
    return true;
}

QString RunHistory::OutcomeName(Outcome outcome) {
    switch (outcome) {
    case Outcome::OnTime:
        return "on time";
    case Outcome::Late:
        return "late";
    case Outcome::CaughtUp:
        return "caught up";
    case Outcome::Missed:
        return "missed";
    case Outcome::Merged:
        return "merged";
    case Outcome::Moved:
        return "moved";
    case Outcome::Ended:
        return "ended";
    case Outcome::Deleted:
        return "deleted";
    }
    return "unknown";
}

QString RunHistory::ReasonName(Reason reason) {
    switch (reason) {
    case Reason::None:
        return QString();
    case Reason::ServiceDown:
        return "service down";
    case Reason::MachineSlept:
        return "machine slept";
    case Reason::ClockStepped:
        return "clock stepped";
    case Reason::Delayed:
        return "service delayed";
    case Reason::AgentUnreachable:
        return "agent unreachable";
    case Reason::DaylightGap:
        return "daylight-saving gap";
    case Reason::RepeatedHour:
        return "repeated hour";
    }
    return "unknown";
}
