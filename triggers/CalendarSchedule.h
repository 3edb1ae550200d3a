#pragma once

#include "FireState.h"

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>

class TriggerAttribute;
class TriggerObject;

// What the start-time computation remembers of a trigger between two runs.
struct ScheduleProgress {
    quint64 firstSeekDone = 0;
    quint64 repeatCount = 0;
    quint64 startOffsetSecs = 0;

    static ScheduleProgress Of(const TriggerObject& object);
};

// The outcome of one computation: the fire state, the next start (valid for
// state 3 only), the progress fields to keep and the attribute's start time
// with the default filled in.
struct ScheduleResult {
    quint64 state = FireState::kError;
    QDateTime next;
    ScheduleProgress progress;
    QString startTime;

    // Writes start time, progress and, for state 3, the next start text.
    void ApplyTo(TriggerObject& object) const;
};

// The calendar schedule computation as a pure function of the trigger's
// definition, its progress fields, the base time `now` and the current time
// (read only for a default start). It touches no trigger object, sends
// nothing and logs nothing, so previews and tables run it as the service does.
class CalendarSchedule {
public:
    // Date searches stop after this many years of calendar: lists that can
    // never match end the computation with an error, never with a hang.
    static constexpr int kSearchYears = 9;

    static ScheduleResult Compute(const TriggerAttribute& attribute, const ScheduleProgress& progress,
                                  const QDateTime& now, const QDateTime& current);
    // The computation of a poll from `from`: the start of the polled minute,
    // or after an on-time run the start that ran, whose seconds the series
    // keeps. After a run the next start must lie in a later minute, or every
    // later poll of this minute would find the plan due again: a start inside
    // it is computed again from the following minute, from the same progress,
    // so one run counts one repetition.
    static ScheduleResult ComputePolled(const TriggerAttribute& attribute, const ScheduleProgress& progress,
                                        const QDateTime& from, const QDateTime& current, bool afterRun);
    // The follow-up after a late run or a missed start: the first start of the
    // plan's own series after `now`, not `now` plus the interval, so that a
    // late run does not move the plan's times. A first computation is the
    // ordinary one.
    static ScheduleResult ComputeLate(const TriggerAttribute& attribute, const ScheduleProgress& progress,
                                      const QDateTime& now, const QDateTime& current);
    static QDateTime MinuteStart(const QDateTime& t);

private:
    CalendarSchedule(const TriggerAttribute& attribute, const ScheduleProgress& progress);

    quint64 Run(const QDateTime& now, const QDateTime& current, QDateTime& out);
    quint64 SeekFirstStartTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 SeekNextDayStartTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 SeekNextRepeatTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 SeekSeriesTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 CandidateAfter(const QDateTime& now, const QDate& date, QDateTime& out) const;
    void FillDefaultStartTime(const QDateTime& current);
    static bool IsEndTimePassed(const QDateTime& t, const QDateTime& end);
    QTime StartTimeOfDay() const;

    // Calendar day rules.
    bool SeekNextDate(const QDateTime& from, quint64 type, QDate& date) const;
    bool IsWeekDayMatched(const QDateTime& t) const;
    bool SeekNextWeekDay(const QDateTime& from, QDate& date) const;
    bool IsMonthDayMatched(const QDateTime& t) const;
    bool SeekNextMonthDay(const QDateTime& from, QDate& date) const;
    static quint64 NextGreaterValue(const QList<quint64>& list, quint64 x);

    const TriggerAttribute& m_attribute;
    ScheduleProgress m_progress;
    QString m_startTime;
};
