#pragma once

#include "RowBuffer.h"

#include <QHash>
#include <QString>
#include <QVarLengthArray>

#include <initializer_list>
#include <optional>

struct sqlite3;
struct sqlite3_stmt;

// The bounded history of occurrences in data/state.db: one row per due start
// (or event firing) of a plan, saying whether it ran, how late, and why not.
//
// Rows are kept small: the start is whole seconds since the epoch, the plan a
// number into a table of plan UUIDs, the hand-over and the agent's answer
// milliseconds after the start and after the hand-over, outcome and reason one
// small number. The key (due, plan) makes the newest rows the end of the table,
// so appends fill whole pages and pruning by age cuts its beginning.
//
// Recording goes through the run state's batch; writing happens inside the run
// state's own transactions on its writer thread, never on the way of a fire.
class RunHistory {
public:
    enum class Outcome : int {
        OnTime = 1,
        Late = 2,
        CaughtUp = 3,
        Missed = 4,
        Merged = 5, // folded into a later run of the plan
        Moved = 6,  // ran at a time other than its own (a daylight-saving gap)
        Ended = 7,
        Deleted = 8,
    };
    enum class Reason : int {
        None = 0,
        ServiceDown = 1,
        MachineSlept = 2,
        ClockStepped = 3,
        Delayed = 4, // neither: the service itself was held up
        AgentUnreachable = 5,
        DaylightGap = 6,
        RepeatedHour = 7,
    };
    // The agent's answer as the history keeps it beside its code.
    static constexpr qint64 kNoAnswer = -1;

    struct Occurrence {
        qint64 dueMSecs = 0;
        qint64 handedMSecs = -1; // -1: nothing was handed to the agent
        Outcome outcome = Outcome::OnTime;
        Reason reason = Reason::None;
        qint64 detail = 0; // a catch-up's spread delay in ms
        int merged = 0;    // earlier starts this run stands for
    };
    struct Answer {
        quint64 code;
        qint64 atMSecs;
    };
    // What happened to a plan's history, in the order it happened: an
    // occurrence, or the agent's answer to the plan's newest run.
    struct Event {
        Occurrence occurrence;
        std::optional<Answer> answer;
    };
    // A plan's events of one batch, nearly always a single one: kept inline,
    // so that recording a run allocates nothing of its own and writing it
    // reads no other block of memory.
    using Events = QVarLengthArray<Event, 1>;
    struct Limits {
        int keepPerPlan = 50;
        int keepDays = 90;
    };

    RunHistory();

    // Creates the tables when missing and learns the plan numbers; on the
    // thread that opened the handle, before the writer starts.
    bool Prepare(sqlite3* handle, const Limits& limits);
    void Detach();
    // Inside an open transaction of the writer. Rows may wait in a buffer
    // until Prune, which every batch ends with.
    bool Write(const QString& planUuid, const Events& events);
    bool Prune(qint64 nowMSecs);
    // After a transaction was rolled back: what was learnt inside it is void.
    void Forget();

    static QString OutcomeName(Outcome outcome);
    static QString ReasonName(Reason reason);

private:
    using Value = RowBuffer::Value;

    bool LoadPlans();
    bool WriteBuffered();
    // What the writer knows of a plan's rows: its number, the start of its
    // newest hand-over still waiting for an answer, and the rows added since
    // its count was last trimmed.
    struct Plan {
        qint64 id;
        qint64 awaitedDue;
        int added;
    };
    static constexpr qint64 kNothingAwaited = -1;

    // Prepared once per handle and kept: preparing costs more than the step.
    sqlite3_stmt* Statement(const char* sql);
    static bool Bind(sqlite3_stmt* statement, std::initializer_list<qint64> values);
    // Null when the plan has no rows and `add` is false.
    Plan* PlanOf(const QString& planUuid, bool add);
    bool Insert(Plan& plan, const QString& planUuid, const Occurrence& occurrence, const Events& batch);
    bool InsertEnd(qint64 planId, const Occurrence& occurrence);
    bool CloseAwaited(Plan& plan, const QString& planUuid, qint64 dueSecs, const Events& batch);
    bool SetAnswer(Plan& plan, const QString& planUuid, const Answer& answer);

    sqlite3* m_handle = nullptr;
    QHash<const char*, sqlite3_stmt*> m_statements;
    Limits m_limits;
    RowBuffer m_rows;
    RowBuffer m_plans;
    // The plans the history knows, learnt from the file; after a rollback
    // learnt again, since what the transaction added is void.
    QHash<QString, Plan> m_knownPlans;
    qint64 m_lastPlanId = 0;
    qint64 m_prunedAtMSecs = 0;
};
