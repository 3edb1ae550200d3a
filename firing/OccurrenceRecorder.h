#pragma once

#include "store/RunHistory.h"

#include <QString>

#include <deque>

class RunStateRecorder;
class TriggerObject;

// Says, at the moment it is known, what became of each start of a plan, and
// why, into the run history.
//
// Why a start was late or missed is read from the clocks: the wall clock that
// moved against the boot clock was stepped; the boot clock that moved against
// the monotonic clock counted a sleep; a start due before the service started
// passed while it was down. Each look compares with the previous one, and the
// moves it finds are kept for a while, so that the starts they passed over are
// named by them however late they are handled.
//
// Lives on the application thread.
class OccurrenceRecorder {
public:
    OccurrenceRecorder();

    // One look at the clocks, and what the looks so far say of a start.
    struct Reading {
        qint64 wallMSecs;
        qint64 bootMSecs;
        qint64 monotonicMSecs;
    };
    // Started at the first reading.
    explicit OccurrenceRecorder(const Reading& first);

    // Where the occurrences go; none are recorded without it.
    void SetRunState(RunStateRecorder* runState) { m_runState = runState; }

    // A calendar start went to the agent just now; `onTime` as the fire's own
    // rule has it.
    void Ran(TriggerObject& object, qint64 dueMSecs, bool onTime);
    // A start passed without a run and none will come for it.
    void Missed(const QString& planUuid, qint64 dueMSecs);
    // A start that passed without a run ran once just now, `delayMSecs` after
    // it was noticed.
    void CaughtUp(const QString& planUuid, qint64 dueMSecs, qint64 delayMSecs);
    // Looks at the clocks, then names what made the start late.
    RunHistory::Reason CauseOf(qint64 dueMSecs);

    void Look(const Reading& reading);
    RunHistory::Reason Classify(qint64 dueMSecs) const;

private:
    struct Jump {
        qint64 atWallMSecs;
        RunHistory::Reason kind;
    };
    static Reading Now();
    void Record(const QString& planUuid, const RunHistory::Occurrence& occurrence);
    static RunHistory::Occurrence Handed(qint64 dueMSecs, RunHistory::Outcome outcome,
                                         RunHistory::Reason reason);
    // Whether the zone's offset changes within a few hours of the start; the
    // answer is kept for the hour, which a poll's starts share.
    bool NearOffsetChange(qint64 dueMSecs);
    static bool InDaylightGap(TriggerObject& object, qint64 dueMSecs);
    static bool InRepeatedHour(qint64 dueMSecs);

    qint64 m_startedMSecs = 0;
    Reading m_last{};
    std::deque<Jump> m_jumps;
    qint64 m_checkedHour = -1;
    bool m_offsetChanges = false;
    RunStateRecorder* m_runState = nullptr;
};
