#include "DateTimeFire.h"

#include "CalendarList.h"
#include "FireState.h"
#include "JobTask.h"
#include "LocalTime.h"
#include "TriggerCheck.h"
#include "TriggerObject.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"

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

DateTimeFire::DateTimeFire(QObject* parent) : TriggerFire(parent) {
    setFireKind(1);
}

quint64 DateTimeFire::Start() {
    m_fireState = FireState::kError;
    return m_fireState;
}

void DateTimeFire::Stop() {}

void DateTimeFire::onkillDateTimer() {}

bool DateTimeFire::IsEndTimePassed(const QDateTime& t, const QDateTime& end) {
    return end.isValid() && end < t;
}

QTime DateTimeFire::StartTimeOfDay() {
    return LocalTime::TimeOfDay(GetTriggerObject()->getObjectTriggerAttribute().getStartTime());
}

quint64 DateTimeFire::SeekNextStartTime(const QDateTime& now, QDateTime& next) {
    TriggerObject* object = GetTriggerObject();
    if (object == nullptr) {
        Logger::Error("TriggerObject pointer is NULL in the DateTimeFire.");
        m_fireState = FireState::kError;
        return m_fireState;
    }
    TriggerAttribute& attribute = object->getObjectTriggerAttribute();
    if (attribute.getInterval() > TriggerCheck::kMaxSpanSecs ||
        attribute.getDuration() > TriggerCheck::kMaxSpanSecs) {
        m_fireState = FireState::kError;
        return m_fireState;
    }
    const QDateTime end = LocalTime::Parse(attribute.getEndTime());
    if (IsEndTimePassed(now, end) ||
        (attribute.getDuration() != 0 && attribute.getInterval() > attribute.getDuration())) {
        m_fireState = FireState::kFinished;
        return m_fireState;
    }
    QDateTime candidate;
    const quint64 type = attribute.getTriggerType();
    quint64 state = FireState::kError;
    if (object->getFirstSeekDone() == 0) {
        if (attribute.getStartTime().isEmpty()) {
            FillDefaultStartTime(attribute);
        }
        state = SeekFirstStartTime(now, type, candidate);
    } else if (type == TriggerTypes::kOnce || attribute.getTriggerEndFlag() != 0) {
        state = FireState::kFinished;
    } else if (attribute.getInterval() == 0) {
        state = SeekNextDayStartTime(now, type, candidate);
    } else if (type == TriggerTypes::kDaily) {
        candidate = now.addSecs(static_cast<qint64>(attribute.getInterval()));
        state = FireState::kScheduled;
    } else {
        state = SeekNextRepeatTime(now, type, candidate);
    }
    if (state == FireState::kScheduled && IsEndTimePassed(candidate, end)) {
        state = FireState::kFinished;
    }
    m_fireState = state;
    if (state == FireState::kScheduled) {
        next = candidate;
        Publish(candidate);
    }
    return m_fireState;
}

void DateTimeFire::FillDefaultStartTime(TriggerAttribute& attribute) {
    const QDateTime current = Clock::now();
    QDateTime start = LocalTime::At(current.date(), QTime(current.time().hour(), current.time().minute()));
    if (attribute.getTriggerType() == TriggerTypes::kDaily) {
        start = start.addSecs(static_cast<qint64>(attribute.getInterval()));
    }
    attribute.setStartTime(LocalTime::Format(start));
}

void DateTimeFire::Publish(const QDateTime& candidate) {
    TriggerObject* object = GetTriggerObject();
    const QString text = LocalTime::Format(candidate);
    object->setNextStartTime(text);
    if (!JobTask::ReportTriggerInfo(object)) {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] request update trigger next start time info error.")
                .arg(LogText::Outside(object->getPlanUuid())));
    }
    Logger::Info(QString("The TimerFire of scheduler[%1] next start time [%2] in the SeekNextStartTime.")
                     .arg(LogText::Outside(object->getPlanUuid()), text));
}

quint64 DateTimeFire::SeekFirstStartTime(const QDateTime& now, quint64 type, QDateTime& out) {
    TriggerObject* object = GetTriggerObject();
    object->setFirstSeekDone(1);
    const TriggerAttribute& attribute = object->getObjectTriggerAttribute();
    if (attribute.getTriggerEndFlag() != 0) {
        return FireState::kFinished;
    }
    const QDateTime start = LocalTime::Parse(attribute.getStartTime());
    if (!start.isValid()) {
        return FireState::kError;
    }
    const QTime startT = LocalTime::TimeOfDay(attribute.getStartTime());
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
        object->setStartOffsetSecs(static_cast<quint64>(startT.secsTo(nowT)));
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
        if (nowT == startT || attribute.getInterval() != 0) {
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

quint64 DateTimeFire::CandidateAfter(const QDateTime& now, const QDate& date, QDateTime& out) {
    const QDateTime candidate = LocalTime::At(date, StartTimeOfDay());
    if (now < candidate) {
        out = candidate;
        return FireState::kScheduled;
    }
    return FireState::kError;
}

quint64 DateTimeFire::SeekNextDayStartTime(const QDateTime& now, quint64 type, QDateTime& out) {
    QDate date;
    if (!SeekNextDate(now, type, date)) {
        return FireState::kError;
    }
    return CandidateAfter(now, date, out);
}

quint64 DateTimeFire::SeekNextRepeatTime(const QDateTime& now, quint64 type, QDateTime& out) {
    TriggerObject* object = GetTriggerObject();
    const TriggerAttribute& attribute = object->getObjectTriggerAttribute();
    const QDateTime candidate = now.addSecs(static_cast<qint64>(attribute.getInterval()));
    const quint64 elapsed =
        attribute.getInterval() * (object->getRepeatCount() + 1) + object->getStartOffsetSecs();
    const QDateTime midnight = LocalTime::At(now.date().addDays(1), QTime(0, 0));
    if (midnight < candidate || (attribute.getDuration() != 0 && elapsed > attribute.getDuration())) {
        object->setStartOffsetSecs(0);
        object->setRepeatCount(0);
        return SeekNextDayStartTime(now, type, out);
    }
    out = candidate;
    object->setRepeatCount(object->getRepeatCount() + 1);
    return FireState::kScheduled;
}

bool DateTimeFire::SeekNextDate(const QDateTime& from, quint64 type, QDate& date) {
    if (GetTriggerObject() == nullptr) {
        return false;
    }
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

bool DateTimeFire::IsWeekDayMatched(const QDateTime& t) {
    TriggerObject* object = GetTriggerObject();
    if (object == nullptr) {
        return false;
    }
    return WeekDays(object->getTriggerAttribute()).allows(static_cast<quint64>(t.date().dayOfWeek()));
}

bool DateTimeFire::SeekNextWeekDay(const QDateTime& from, QDate& date) {
    TriggerObject* object = GetTriggerObject();
    if (object == nullptr) {
        return false;
    }
    const CalendarList days = WeekDays(object->getTriggerAttribute());
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

bool DateTimeFire::IsMonthDayMatched(const QDateTime& t) {
    TriggerObject* object = GetTriggerObject();
    if (object == nullptr) {
        return false;
    }
    const TriggerAttribute attribute = object->getTriggerAttribute();
    const QDate date = t.date();
    return MonthDays(attribute, date).allows(static_cast<quint64>(date.day())) &&
           Months(attribute).allows(static_cast<quint64>(date.month()));
}

// The first date after the date of `from` whose month the month list allows
// and whose day the month-day list allows (the last-day flag applied for that
// date's own month). Months without an allowed day are skipped, so a listed day
// beyond a month's length simply does not occur in that month.
bool DateTimeFire::SeekNextMonthDay(const QDateTime& from, QDate& date) {
    TriggerObject* object = GetTriggerObject();
    if (object == nullptr) {
        return false;
    }
    const TriggerAttribute attribute = object->getTriggerAttribute();
    const CalendarList months = Months(attribute);
    const QDate origin = from.date();
    QDate month(origin.year(), origin.month(), 1);
    int after = origin.day();
    for (int i = 0; i <= kSearchYears * 12; ++i, month = month.addMonths(1), after = 0) {
        if (!months.allows(static_cast<quint64>(month.month()))) {
            continue;
        }
        const int day = FirstAllowedDay(MonthDays(attribute, month), month, after);
        if (day != 0) {
            date = QDate(month.year(), month.month(), day);
            return true;
        }
    }
    return false;
}

quint64 DateTimeFire::NextGreaterValue(const QList<quint64>& list, quint64 x) {
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
