#include "CalendarSchedule.h"

#include "LocalTime.h"
#include "TriggerCheck.h"
#include "TriggerObject.h"
#include "WallTime.h"

namespace {
constexpr qint64 kGraceMSecs = 180000;
constexpr qint64 kOneSecondMSecs = 1000;
} // namespace

ScheduleProgress ScheduleProgress::Of(const TriggerObject& object) {
    return {object.getFirstSeekDone(), object.getRepeatCount(), object.getStartOffsetSecs()};
}

QDateTime ScheduleResult::Next() const {
    return LocalTime::WithOffset(nextMSecs);
}

void ScheduleResult::ApplyTo(TriggerObject& object) const {
    if (!filledStartTime.isEmpty()) {
        object.setFilledStartTime(filledStartTime);
        object.getObjectTriggerAttribute().setStartTime(filledStartTime);
    }
    object.setFirstSeekDone(progress.firstSeekDone);
    object.setRepeatCount(progress.repeatCount);
    object.setStartOffsetSecs(progress.startOffsetSecs);
    if (state == FireState::kScheduled) {
        object.setNextStart(nextMSecs, WallTime::OffsetAt(nextMSecs));
    }
}

CalendarSchedule::CalendarSchedule(const CalendarRule& rule, const ScheduleProgress& progress)
    : m_rule(rule), m_progress(progress),
      m_endMSecs(rule.hasEnd() ? WallTime::InstantOf(rule.endWall()) : 0) {}

qint64 CalendarSchedule::MinuteStart(qint64 msecs) {
    const qint64 wall = WallTime::Of(msecs);
    return msecs - (wall - WallTime::FloorDiv(wall, WallTime::kMinuteMSecs) * WallTime::kMinuteMSecs);
}

QDateTime CalendarSchedule::MinuteStart(const QDateTime& t) {
    return LocalTime::WithOffset(MinuteStart(t.toMSecsSinceEpoch()));
}

ScheduleResult CalendarSchedule::Compute(const CalendarRule& rule, const ScheduleProgress& progress,
                                         qint64 now, qint64 current) {
    CalendarSchedule schedule(rule, progress);
    ScheduleResult result;
    Start next;
    result.state = schedule.Run(now, current, next);
    if (result.state == FireState::kScheduled) {
        result.nextMSecs = next.msecs;
        result.movedByGap = next.movedByGap;
    }
    result.progress = schedule.m_progress;
    result.filledStartTime = schedule.m_filledStartTime;
    return result;
}

ScheduleResult CalendarSchedule::ComputePolled(const CalendarRule& rule, const ScheduleProgress& progress,
                                               qint64 minuteStart, qint64 current, bool afterRun) {
    ScheduleResult result = Compute(rule, progress, minuteStart, current);
    const qint64 nextMinute = minuteStart + WallTime::kMinuteMSecs;
    if (afterRun && result.state == FireState::kScheduled && result.nextMSecs < nextMinute) {
        result = Compute(rule, progress, nextMinute, current);
    }
    return result;
}

ScheduleResult CalendarSchedule::ComputeLate(const CalendarRule& rule, const ScheduleProgress& progress,
                                             qint64 now, qint64 current) {
    ScheduleResult result = Compute(rule, progress, now, current);
    if (progress.firstSeekDone == 0 || rule.interval() == 0 || rule.type() == TriggerTypes::kOnce ||
        rule.ended() || result.state != FireState::kScheduled) {
        return result;
    }
    CalendarSchedule schedule(rule, progress);
    Start next;
    result.state = schedule.SeekSeriesTime(now, next);
    if (result.state == FireState::kScheduled && schedule.IsEndTimePassed(next.msecs)) {
        result.state = FireState::kFinished;
    }
    result.nextMSecs = result.state == FireState::kScheduled ? next.msecs : 0;
    result.movedByGap = result.state == FireState::kScheduled && next.movedByGap;
    result.progress = schedule.m_progress;
    return result;
}

// The first start of the plan's own series after `now`: a daily repetition
// counts whole intervals from its start date-time, the others from the start
// time of an allowed day, within the day and its span.
quint64 CalendarSchedule::SeekSeriesTime(qint64 now, Start& out) {
    if (!m_rule.startIsValid()) {
        return FireState::kError;
    }
    const quint64 type = m_rule.type();
    const bool daily = type == TriggerTypes::kDaily;
    const QDate today = WallTime::DateOf(WallTime::Of(now));
    const qint64 intervalMSecs = static_cast<qint64>(m_rule.interval()) * kOneSecondMSecs;
    const qint64 origin =
        WallTime::InstantOf(daily ? m_rule.startWall() : WallTime::Make(today, m_rule.startTimeOfDay()));
    const bool dayAllowed = daily || m_rule.AllowsDate(today);
    m_progress.startOffsetSecs = 0;
    m_progress.repeatCount = 0;
    if (dayAllowed && now < origin) {
        out = {origin, false};
        return FireState::kScheduled;
    }
    const qint64 steps = (now - origin) / intervalMSecs + 1;
    const qint64 candidate = origin + steps * intervalMSecs;
    const qint64 midnight = WallTime::InstantOf(WallTime::StartOfDay(today.addDays(1)));
    const quint64 span = m_rule.duration();
    if (daily || (dayAllowed && candidate <= midnight &&
                  (span == 0 || static_cast<quint64>(steps) * m_rule.interval() <= span))) {
        out = {candidate, false};
        m_progress.repeatCount = daily ? 0 : static_cast<quint64>(steps);
        return FireState::kScheduled;
    }
    return SeekNextDayStartTime(now, out);
}

quint64 CalendarSchedule::Run(qint64 now, qint64 current, Start& out) {
    const quint64 interval = m_rule.interval();
    const quint64 duration = m_rule.duration();
    if (interval > TriggerCheck::kMaxSpanSecs || duration > TriggerCheck::kMaxSpanSecs) {
        return FireState::kError;
    }
    if (IsEndTimePassed(now) || (duration != 0 && interval > duration)) {
        return FireState::kFinished;
    }
    const quint64 type = m_rule.type();
    quint64 state = FireState::kError;
    if (m_progress.firstSeekDone == 0) {
        if (m_rule.startIsEmpty()) {
            FillDefaultStartTime(current);
        }
        state = SeekFirstStartTime(now, out);
    } else if (type == TriggerTypes::kOnce || m_rule.ended()) {
        state = FireState::kFinished;
    } else if (interval == 0) {
        state = SeekNextDayStartTime(now, out);
    } else if (type == TriggerTypes::kDaily) {
        out = {now + static_cast<qint64>(interval) * kOneSecondMSecs, false};
        state = FireState::kScheduled;
    } else {
        state = SeekNextRepeatTime(now, out);
    }
    if (state == FireState::kScheduled && IsEndTimePassed(out.msecs)) {
        return FireState::kFinished;
    }
    return state;
}

bool CalendarSchedule::IsEndTimePassed(qint64 t) const {
    return m_rule.hasEnd() && m_endMSecs < t;
}

// The current minute, in the reading of a repeated hour that `current` is in;
// a daily trigger's default start lies one interval later.
void CalendarSchedule::FillDefaultStartTime(qint64 current) {
    qint64 start = MinuteStart(current);
    if (m_rule.type() == TriggerTypes::kDaily) {
        start += static_cast<qint64>(m_rule.interval()) * kOneSecondMSecs;
    }
    const qint64 wall = WallTime::Of(start);
    m_rule.setStartWall(wall);
    m_filledStartTime = LocalTime::FormatWall(wall);
}

// The start time of day on `date`: its first reading after `now`.
CalendarSchedule::Start CalendarSchedule::At(const QDate& date, qint64 now) const {
    WallTime::Reading reading = WallTime::Reading::Once;
    const qint64 msecs = WallTime::InstantAfter(WallTime::Make(date, m_rule.startTimeOfDay()), now, &reading);
    return {msecs, reading == WallTime::Reading::Never};
}

quint64 CalendarSchedule::SeekFirstStartTime(qint64 now, Start& out) {
    m_progress.firstSeekDone = 1;
    if (m_rule.ended()) {
        return FireState::kFinished;
    }
    if (!m_rule.startIsValid()) {
        return FireState::kError;
    }
    WallTime::Reading reading = WallTime::Reading::Once;
    const Start start{WallTime::InstantOf(m_rule.startWall(), &reading), reading == WallTime::Reading::Never};
    const qint64 startT = m_rule.startTimeOfDay();
    const qint64 nowWall = WallTime::Of(now);
    const qint64 nowT = WallTime::TimeOfDay(nowWall);
    Start base{now, false};
    if (now < start.msecs) {
        base = start;
    } else if (start.msecs == now || now - kGraceMSecs < start.msecs) {
        base.msecs = now + kOneSecondMSecs;
    } else if (m_rule.type() == TriggerTypes::kOnce) {
        return FireState::kFinished;
    }
    // Whole seconds of the wall clock, as a time of day counts them.
    if (nowT > startT) {
        m_progress.startOffsetSecs = static_cast<quint64>(nowT / kOneSecondMSecs - startT / kOneSecondMSecs);
    }
    const QDate baseDate = WallTime::DateOf(WallTime::Of(base.msecs));
    if (m_rule.AllowsDate(baseDate)) {
        if (now < base.msecs) {
            out = base;
            return FireState::kScheduled;
        }
        if (nowT < startT) {
            out = At(WallTime::DateOf(nowWall), now);
            return FireState::kScheduled;
        }
        if (nowT == startT || m_rule.interval() != 0) {
            out = {now + kOneSecondMSecs, false};
            return FireState::kScheduled;
        }
    }
    QDate date;
    if (!m_rule.NextDate(baseDate, date)) {
        return FireState::kError;
    }
    const Start candidate = At(date, now);
    if (now < candidate.msecs) {
        out = candidate;
        return FireState::kScheduled;
    }
    if (candidate.msecs == now) {
        out = {now + kOneSecondMSecs, false};
        return FireState::kScheduled;
    }
    return FireState::kError;
}

quint64 CalendarSchedule::NextDateAfter(const QDate& from, qint64 now, Start& out) const {
    QDate date;
    if (!m_rule.NextDate(from, date)) {
        return FireState::kError;
    }
    const Start candidate = At(date, now);
    if (now < candidate.msecs) {
        out = candidate;
        return FireState::kScheduled;
    }
    return FireState::kError;
}

quint64 CalendarSchedule::SeekNextDayStartTime(qint64 now, Start& out) {
    return NextDateAfter(WallTime::DateOf(WallTime::Of(now)), now, out);
}

quint64 CalendarSchedule::SeekNextRepeatTime(qint64 now, Start& out) {
    const quint64 interval = m_rule.interval();
    const qint64 candidate = now + static_cast<qint64>(interval) * kOneSecondMSecs;
    const quint64 elapsed = interval * (m_progress.repeatCount + 1) + m_progress.startOffsetSecs;
    const QDate today = WallTime::DateOf(WallTime::Of(now));
    const qint64 midnight = WallTime::InstantOf(WallTime::StartOfDay(today.addDays(1)));
    if (midnight < candidate || (m_rule.duration() != 0 && elapsed > m_rule.duration())) {
        m_progress.startOffsetSecs = 0;
        m_progress.repeatCount = 0;
        return NextDateAfter(today, now, out);
    }
    out = {candidate, false};
    ++m_progress.repeatCount;
    return FireState::kScheduled;
}
