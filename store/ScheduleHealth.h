#pragma once

#include <QHash>
#include <QString>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

// How the plans of the run state fare: how many of each trigger type are
// scheduled or ended, which start comes first, which plans are overdue or were
// refused by the agent. Each plan is kept as one compact row, so that taking
// the figures is one pass over memory instead of a query of the file: the
// service takes them every few seconds, at a million plans.
//
// Safe from any thread.
class ScheduleHealth {
public:
    enum class Problem { Overdue, Refused, Missed };
    struct Trouble {
        QString planUuid;
        Problem problem = Problem::Overdue;
        // Overdue: the start that passed, or when the run went to the agent
        // and waits for its answer since. Refused: when the agent answered.
        // Missed: the start that was missed.
        qint64 sinceMSecs = 0;
    };

    struct Figures {
        // (trigger type, ended) -> plans
        std::map<std::pair<quint64, bool>, quint64> plans;
        qint64 earliestNextMSecs = 0; // 0: no plan has a further start
        quint64 overdue = 0;
        quint64 refused = 0;
        quint64 missed = 0; // plans whose last start was missed
        // The plans in trouble, oldest first, at most the limit asked for.
        std::vector<Trouble> trouble;
        quint64 troubleLeftOut = 0;
    };

    // A plan as the run state file holds it.
    void Put(const QString& planUuid, quint64 triggerType, const QString& nextStart, quint64 endFlag,
             qint64 handedMSecs, bool hasResult, quint64 result, qint64 resultMSecs);
    void NoteRun(const QString& planUuid, quint64 triggerType, qint64 handedMSecs);
    void NoteSchedule(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                      quint64 endFlag);
    void NoteResult(const QString& planUuid, quint64 result, qint64 atMSecs);
    // A start of the plan passed without a run; the next run clears it.
    void NoteMissed(const QString& planUuid, qint64 dueMSecs);
    void Remove(const QString& planUuid);
    void Clear();

    // A plan is overdue when a start passed more than `overdueAfterMSecs` ago
    // and either nothing went to the agent for it or the agent has not
    // answered the run that went.
    Figures Take(qint64 nowMSecs, qint64 overdueAfterMSecs, size_t troubleLimit) const;

private:
    struct Row {
        QString planUuid;
        quint64 nextKey = 0; // the next start's wall-clock digits, 0 when none
        qint64 handedMSecs = 0;
        qint64 resultMSecs = 0;
        qint64 missedMSecs = 0; // the last start missed since the last run, 0 when none
        // The narrow fields share one word: a million plans keep a row each.
        quint32 hash = 0;        // of planUuid, for the index
        quint16 triggerType = 0; // registered types are all below 262
        bool ended : 1;
        bool hasResult : 1;
        bool refusal : 1; // the agent's answer was not 0
        Row() : ended(false), hasResult(false), refusal(false) {}
    };

    Row& At(const QString& planUuid);
    // The slot of the index that holds the plan's row, or the empty slot where
    // it would go.
    size_t SlotOf(const QString& planUuid, quint32 hash) const;
    void GrowIndex();
    void EraseSlot(size_t slot);
    static void Schedule(Row& row, const QString& nextStart, quint64 endFlag);
    static bool Troubled(const Row& row, quint64 dueKey, qint64 answerDueMSecs, Trouble& trouble);

    mutable std::mutex m_mutex;
    std::vector<Row> m_rows;
    // Row number + 1 by plan, 0 for a free slot; open addressing, at most half
    // full, never empty. Four to eight bytes a plan, where a hash node would
    // take 48.
    static constexpr size_t kFirstSlots = 64;
    static constexpr size_t kFirstRows = 64;
    std::vector<quint32> m_index = std::vector<quint32>(kFirstSlots, 0);
};
