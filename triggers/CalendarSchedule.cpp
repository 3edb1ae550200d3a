#include "CalendarSchedule.h"

#include "CalendarList.h"
#include "LocalTime.h"
#include "TriggerCheck.h"
#include "TriggerObject.h"

namespace {
constexpr qint64 kGraceMSecs = 180000;
constexpr qint64 kOneSecondMSecs = 1000;

CalendarList WeekDays(const TriggerAttribute& attribute) {
    return CalendarList(attribute.getWeekDays(), 1, 7);
}

CalendarList Months(const TriggerAttribute& attribute) {
    return CalendarList(attribute.getWhichMoths(), 1, 12);
}

// The month-day list as it applies to one month: the last-day flag adds that
// month's last day.
CalendarList MonthDays(const TriggerAttribute& attribute, const QDate& month) {
    CalendarList days(attribute.getMonthDays(), 1, 31);
    if (attribute.getDayLastFlag() == 1) {
        days.addLastDay(static_cast<quint64>(month.daysInMonth()));
    }
    return days;
}

// The first day after `after` (0: from the first) that the list allows in the
// month of `month`, or 0 when there is none.
int FirstAllowedDay(const CalendarList& days, const QDate& month, int after) {
    const int last = month.daysInMonth();
    if (days.isEmpty()) {
        return after < last ? after + 1 : 0;
    }
    int best = 0;
    for (quint64 value : days.values()) {
        const int day = static_cast<int>(value);
        if (day > after && day <= last && (best == 0 || day < best)) {
            best = day;
        }
    }
    return best;
}
} // namespace

ScheduleProgress ScheduleProgress::Of(const TriggerObject& object) {
    return {object.getFirstSeekDone(), object.getRepeatCount(), object.getStartOffsetSecs()};
}

void ScheduleResult::ApplyTo(TriggerObject& object) const {
    TriggerAttribute& attribute = object.getObjectTriggerAttribute();
    if (attribute.getStartTime().isEmpty() && !startTime.isEmpty()) {
        object.setFilledStartTime(startTime);
    }
    attribute.setStartTime(startTime);
    object.setFirstSeekDone(progress.firstSeekDone);
    object.setRepeatCount(progress.repeatCount);
    object.setStartOffsetSecs(progress.startOffsetSecs);
    if (state == FireState::kScheduled) {
        object.setNextStart(next);
    }
}

CalendarSchedule::CalendarSchedule(const TriggerAttribute& attribute, const ScheduleProgress& progress)
    : m_attribute(attribute), m_progress(progress), m_startTime(attribute.getStartTime()) {}

// Counted on the instant with its own offset, so that a moment in a repeated
// hour keeps its occurrence; setting the wall-clock time would take the first.
QDateTime CalendarSchedule::MinuteStart(const QDateTime& t) {
    const qint64 msecs = t.toMSecsSinceEpoch();
    const qint64 local = msecs + static_cast<qint64>(t.offsetFromUtc()) * 1000;
    const qint64 intoMinute = ((local % 60000) + 60000) % 60000;
    return QDateTime::fromMSecsSinceEpoch(msecs - intoMinute, t.timeSpec(), t.offsetFromUtc());
}

ScheduleResult CalendarSchedule::Compute(const TriggerAttribute& attribute, const ScheduleProgress& progress,
                                         const QDateTime& now, const QDateTime& current) {
    CalendarSchedule schedule(attribute, progress);
    ScheduleResult result;
    result.state = schedule.Run(now, current, result.next);
    if (result.state != FireState::kScheduled) {
        result.next = QDateTime();
    }
    result.progress = schedule.m_progress;
    result.startTime = schedule.m_startTime;
    return result;
}

ScheduleResult CalendarSchedule::ComputePolled(const TriggerAttribute& attribute,
                                               const ScheduleProgress& progress, const QDateTime& from,
                                               const QDateTime& current, bool afterRun) {
    ScheduleResult result = Compute(attribute, progress, from, current);
    const QDateTime nextMinute = MinuteStart(from).addSecs(60);
    if (afterRun && result.state == FireState::kScheduled && result.next < nextMinute) {
        result = Compute(attribute, progress, nextMinute, current);
    }
    return result;
}

ScheduleResult CalendarSchedule::ComputeLate(const TriggerAttribute& attribute,
                                             const ScheduleProgress& progress, const QDateTime& now,
                                             const QDateTime& current) {
    const quint64 type = attribute.getTriggerType();
    if (progress.firstSeekDone == 0 || attribute.getInterval() == 0 || type == TriggerTypes::kOnce ||
        attribute.getTriggerEndFlag() != 0) {
        return Compute(attribute, progress, now, current);
    }
    CalendarSchedule schedule(attribute, progress);
    ScheduleResult result = Compute(attribute, progress, now, current);
    if (result.state != FireState::kScheduled) {
        return result;
    }
    result.state = schedule.SeekSeriesTime(now, type, result.next);
    if (result.state != FireState::kScheduled ||
        IsEndTimePassed(result.next, LocalTime::Parse(attribute.getEndTime()))) {
        result.state = result.state == FireState::kScheduled ? FireState::kFinished : result.state;
        result.next = QDateTime();
    }
    result.progress = schedule.m_progress;
    return result;
}

// The first start of the plan's own series after `now`: a daily repetition
// counts whole intervals from its start date-time, the others from the start
// time of an allowed day, within the day and its span.
quint64 CalendarSchedule::SeekSeriesTime(const QDateTime& now, quint64 type, QDateTime& out) {
    const qint64 intervalMSecs = static_cast<qint64>(m_attribute.getInterval()) * 1000;
    const QDateTime origin = type == TriggerTypes::kDaily ? LocalTime::Parse(m_startTime)
                                                          : LocalTime::At(now.date(), StartTimeOfDay());
    if (!origin.isValid()) {
        return FireState::kError;
    }
    const bool dayAllowed = type == TriggerTypes::kDaily ||
                            (type == TriggerTypes::kWeekly ? IsWeekDayMatched(now) : IsMonthDayMatched(now));
    m_progress.startOffsetSecs = 0;
    m_progress.repeatCount = 0;
    if (dayAllowed && now < origin) {
        out = origin;
        return FireState::kScheduled;
    }
    const qint64 steps = origin.msecsTo(now) / intervalMSecs + 1;
    const QDateTime candidate = origin.addMSecs(steps * intervalMSecs);
    const QDateTime midnight = LocalTime::At(now.date().addDays(1), QTime(0, 0));
    const quint64 span = m_attribute.getDuration();
    if (type == TriggerTypes::kDaily ||
        (dayAllowed && !(midnight < candidate) &&
         (span == 0 || static_cast<quint64>(steps) * m_attribute.getInterval() <= span))) {
        out = candidate;
        m_progress.repeatCount = type == TriggerTypes::kDaily ? 0 : static_cast<quint64>(steps);
        return FireState::kScheduled;
    }
    return SeekNextDayStartTime(now, type, out);
}

quint64 CalendarSchedule::Run(const QDateTime& now, const QDateTime& current, QDateTime& out) {
    if (m_attribute.getInterval() > TriggerCheck::kMaxSpanSecs ||
        m_attribute.getDuration() > TriggerCheck::kMaxSpanSecs) {
        return FireState::kError;
    }
    const QDateTime end = LocalTime::Parse(m_attribute.getEndTime());
    if (IsEndTimePassed(now, end) ||
        (m_attribute.getDuration() != 0 && m_attribute.getInterval() > m_attribute.getDuration())) {
        return FireState::kFinished;
    }
    const quint64 type = m_attribute.getTriggerType();
    quint64 state = FireState::kError;
    if (m_progress.firstSeekDone == 0) {
        if (m_startTime.isEmpty()) {
            FillDefaultStartTime(current);
        }
        state = SeekFirstStartTime(now, type, out);
    } else if (type == TriggerTypes::kOnce || m_attribute.getTriggerEndFlag() != 0) {
        state = FireState::kFinished;
    } else if (m_attribute.getInterval() == 0) {
        state = SeekNextDayStartTime(now, type, out);
    } else if (type == TriggerTypes::kDaily) {
        out = now.addSecs(static_cast<qint64>(m_attribute.getInterval()));
        state = FireState::kScheduled;
    } else {
        state = SeekNextRepeatTime(now, type, out);
    }
    if (state == FireState::kScheduled && IsEndTimePassed(out, end)) {
        return FireState::kFinished;
    }
    return state;
}

bool CalendarSchedule::IsEndTimePassed(const QDateTime& t, const QDateTime& end) {
    return end.isValid() && end < t;
}

QTime CalendarSchedule::StartTimeOfDay() const {
    return LocalTime::TimeOfDay(m_startTime);
}

void CalendarSchedule::FillDefaultStartTime(const QDateTime& current) {
    QDateTime start = LocalTime::At(current.date(), QTime(current.time().hour(), current.time().minute()));
    if (m_attribute.getTriggerType() == TriggerTypes::kDaily) {
        start = start.addSecs(static_cast<qint64>(m_attribute.getInterval()));
    }
    m_startTime = LocalTime::Format(start);
}

quint64 CalendarSchedule::SeekFirstStartTime(const QDateTime& now, quint64 type, QDateTime& out) {
    m_progress.firstSeekDone = 1;
    if (m_attribute.getTriggerEndFlag() != 0) {
        return FireState::kFinished;
    }
    const QDateTime start = LocalTime::Parse(m_startTime);
    if (!start.isValid()) {
        return FireState::kError;
    }
    const QTime startT = StartTimeOfDay();
    const QTime nowT = now.time();
    QDateTime base;
    if (now < start) {
        base = start;
    } else if (start == now || now.addMSecs(-kGraceMSecs) < start) {
        base = now.addMSecs(kOneSecondMSecs);
    } else if (type == TriggerTypes::kOnce) {
        return FireState::kFinished;
    } else {
        base = now;
    }
    if (nowT > startT) {
        m_progress.startOffsetSecs = static_cast<quint64>(startT.secsTo(nowT));
    }
    bool qualifies = false;
    if (type == TriggerTypes::kOnce || type == TriggerTypes::kDaily) {
        qualifies = true;
    } else if (type == TriggerTypes::kWeekly) {
        qualifies = IsWeekDayMatched(base);
    } else if (type == TriggerTypes::kMonthly) {
        qualifies = IsMonthDayMatched(base);
    }
    if (qualifies) {
        if (now < base) {
            out = base;
            return FireState::kScheduled;
        }
        if (nowT < startT) {
            out = LocalTime::At(now.date(), startT);
            return FireState::kScheduled;
        }
        if (nowT == startT || m_attribute.getInterval() != 0) {
            out = now.addMSecs(kOneSecondMSecs);
            return FireState::kScheduled;
        }
    }
    QDate date;
    if (!SeekNextDate(base, type, date)) {
        return FireState::kError;
    }
    const QDateTime candidate = LocalTime::At(date, startT);
    if (now < candidate) {
        out = candidate;
        return FireState::kScheduled;
    }
    if (candidate == now) {
        out = now.addMSecs(kOneSecondMSecs);
        return FireState::kScheduled;
    }
    return FireState::kError;
}

quint64 CalendarSchedule::CandidateAfter(const QDateTime& now, const QDate& date, QDateTime& out) const {
    const QDateTime candidate = LocalTime::At(date, StartTimeOfDay());
    if (now < candidate) {
        out = candidate;
        return FireState::kScheduled;
    }
    return FireState::kError;
}

quint64 CalendarSchedule::SeekNextDayStartTime(const QDateTime& now, quint64 type, QDateTime& out) {
    QDate date;
    if (!SeekNextDate(now, type, date)) {
        return FireState::kError;
    }
    return CandidateAfter(now, date, out);
}

quint64 CalendarSchedule::SeekNextRepeatTime(const QDateTime& now, quint64 type, QDateTime& out) {
    const quint64 interval = m_attribute.getInterval();
    const QDateTime candidate = now.addSecs(static_cast<qint64>(interval));
    const quint64 elapsed = interval * (m_progress.repeatCount + 1) + m_progress.startOffsetSecs;
    const QDateTime midnight = LocalTime::At(now.date().addDays(1), QTime(0, 0));
    if (midnight < candidate || (m_attribute.getDuration() != 0 && elapsed > m_attribute.getDuration())) {
        m_progress.startOffsetSecs = 0;
        m_progress.repeatCount = 0;
        return SeekNextDayStartTime(now, type, out);
    }
    out = candidate;
    ++m_progress.repeatCount;
    return FireState::kScheduled;
}

bool CalendarSchedule::SeekNextDate(const QDateTime& from, quint64 type, QDate& date) const {
    switch (type) {
    case TriggerTypes::kOnce:
    case TriggerTypes::kDaily:
        date = from.date().addDays(1);
        return true;
    case TriggerTypes::kWeekly:
        return SeekNextWeekDay(from, date);
    case TriggerTypes::kMonthly:
        return SeekNextMonthDay(from, date);
    default:
        return false;
    }
}

bool CalendarSchedule::IsWeekDayMatched(const QDateTime& t) const {
    return WeekDays(m_attribute).allows(static_cast<quint64>(t.date().dayOfWeek()));
}

bool CalendarSchedule::SeekNextWeekDay(const QDateTime& from, QDate& date) const {
    const CalendarList days = WeekDays(m_attribute);
    if (days.impossible()) {
        return false;
    }
    const quint64 w = static_cast<quint64>(from.date().dayOfWeek());
    if (days.isEmpty()) {
        date = from.date().addDays(1);
        return true;
    }
    const quint64 x = NextGreaterValue(days.values(), w);
    qint64 step = 7;
    if (x > w) {
        step = static_cast<qint64>(x - w);
    } else if (x < w) {
        step = static_cast<qint64>(x) - static_cast<qint64>(w) + 7;
    }
    date = from.date().addDays(step);
    return true;
}

bool CalendarSchedule::IsMonthDayMatched(const QDateTime& t) const {
    const QDate date = t.date();
    return MonthDays(m_attribute, date).allows(static_cast<quint64>(date.day())) &&
           Months(m_attribute).allows(static_cast<quint64>(date.month()));
}

// The first date after the date of `from` whose month the month list allows
// and whose day the month-day list allows (the last-day flag applied for that
// date's own month). Months without an allowed day are skipped, so a listed day
// beyond a month's length simply does not occur in that month.
bool CalendarSchedule::SeekNextMonthDay(const QDateTime& from, QDate& date) const {
    const CalendarList months = Months(m_attribute);
    const QDate origin = from.date();
    QDate month(origin.year(), origin.month(), 1);
    int after = origin.day();
    for (int i = 0; i <= kSearchYears * 12; ++i, month = month.addMonths(1), after = 0) {
        if (!months.allows(static_cast<quint64>(month.month()))) {
            continue;
        }
        const int day = FirstAllowedDay(MonthDays(m_attribute, month), month, after);
        if (day != 0) {
            date = QDate(month.year(), month.month(), day);
            return true;
        }
    }
    return false;
}

quint64 CalendarSchedule::NextGreaterValue(const QList<quint64>& list, quint64 x) {
    if (list.isEmpty()) {
        return 0;
    }
    quint64 smallest = list.first();
    bool found = false;
    quint64 greater = 0;
    for (quint64 value : list) {
        smallest = qMin(smallest, value);
        if (value > x && (!found || value < greater)) {
            greater = value;
            found = true;
        }
    }
    return found ? greater : smallest;
}
