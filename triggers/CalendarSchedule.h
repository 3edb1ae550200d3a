#pragma once

#include "CalendarRule.h"
#include "FireState.h"

#include <QDateTime>
#include <QString>

class TriggerObject;

// What the start-time computation remembers of a trigger between two runs.
struct ScheduleProgress {
    quint64 firstSeekDone = 0;
    quint64 repeatCount = 0;
    quint64 startOffsetSecs = 0;

    static ScheduleProgress Of(const TriggerObject& object);
};

// The outcome of one computation: the fire state, the next start as an instant
// (state 3 only), the progress fields to keep and the start time that the first
// computation filled in for an empty start text.
struct ScheduleResult {
    quint64 state = FireState::kError;
    qint64 nextMSecs = 0;
    // The start's wall-clock time lay in a gap that the clocks skip, and the
    // start was moved on by the length of the gap.
    bool movedByGap = false;
    ScheduleProgress progress;
    QString filledStartTime;

    // The next start with its UTC offset.
    QDateTime Next() const;
    // Writes a filled-in start time, the progress and, for state 3, the next
    // start text.
    void ApplyTo(TriggerObject& object) const;
};

// The calendar schedule computation as a pure function of the parsed rule, the
// progress fields, the base instant `now` and the current instant (read only
// for a default start). It touches no trigger object, sends nothing and logs
// nothing, so previews and tables run it as the service does. Every start is an
// instant: the two readings of a repeated hour stay apart, and repetitions
// count real seconds.
class CalendarSchedule {
public:
    static ScheduleResult Compute(const CalendarRule& rule, const ScheduleProgress& progress, qint64 now,
                                  qint64 current);
    // The computation after a poll in the minute starting at `minuteStart`.
    // After a run the next start must lie in a later minute, or every later
    // poll of this minute would find the plan due again: a start inside it is
    // computed again from the following minute, from the same progress, so
    // one run counts one repetition.
    static ScheduleResult ComputePolled(const CalendarRule& rule, const ScheduleProgress& progress,
                                        qint64 minuteStart, qint64 current, bool afterRun);
    // The follow-up after a late run or a missed start: the first start of the
    // plan's own series after `now`, not `now` plus the interval, so that a
    // late run does not move the plan's times. A first computation is the
    // ordinary one.
    static ScheduleResult ComputeLate(const CalendarRule& rule, const ScheduleProgress& progress, qint64 now,
                                      qint64 current);
    // The start of the wall-clock minute an instant lies in, in the same
    // reading of a repeated hour.
    static qint64 MinuteStart(qint64 msecs);
    static QDateTime MinuteStart(const QDateTime& t);

private:
    struct Start {
        qint64 msecs = 0;
        bool movedByGap = false;
    };

    CalendarSchedule(const CalendarRule& rule, const ScheduleProgress& progress);

    quint64 Run(qint64 now, qint64 current, Start& out);
    quint64 SeekFirstStartTime(qint64 now, Start& out);
    quint64 SeekNextDayStartTime(qint64 now, Start& out);
    quint64 SeekNextRepeatTime(qint64 now, Start& out);
    quint64 SeekSeriesTime(qint64 now, Start& out);
    quint64 NextDateAfter(const QDate& from, qint64 now, Start& out) const;
    Start At(const QDate& date, qint64 now) const;
    void FillDefaultStartTime(qint64 current);
    bool IsEndTimePassed(qint64 t) const;

    CalendarRule m_rule;
    ScheduleProgress m_progress;
    QString m_filledStartTime;
    qint64 m_endMSecs = 0;
};
