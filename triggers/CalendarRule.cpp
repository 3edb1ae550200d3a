#include "CalendarRule.h"

#include "FireState.h"
#include "LocalTime.h"
#include "TriggerCheck.h"
#include "WallTime.h"

#include "framework/CommonTools.h"
#include "framework/TriggerAttribute.h"

namespace {
constexpr quint32 kAllWeekDays = 0xFEu; // bits 1 to 7
constexpr quint32 kAllMonths = 0x1FFEu; // bits 1 to 12
constexpr quint32 kAllMonthDays = ~1u;  // bits 1 to 31

// The list's values from 1 to `highest` as bits; `all` when the text holds no
// value at all.
quint32 Bits(const QString& text, quint64 highest, quint32 all, bool& empty) {
    empty = true;
    quint32 bits = 0;
    CommonTools::ForEachListValue(text, [&](quint64 value) {
        empty = false;
        if (value >= 1 && value <= highest) {
            bits |= 1u << value;
        }
    });
    return empty ? all : bits;
}

quint32 Span(quint64 secs) {
    return static_cast<quint32>(qMin<quint64>(secs, TriggerCheck::kMaxSpanSecs + 1));
}

// Bits from `low` to `high` (0 to 31).
quint32 Range(int low, int high) {
    const quint32 upTo = high >= 31 ? ~0u : (2u << high) - 1;
    return upTo & ~((1u << low) - 1);
}
} // namespace

CalendarRule::CalendarRule(const TriggerAttribute& attribute)
    : m_interval(Span(attribute.getInterval())), m_duration(Span(attribute.getDuration())),
      m_type(TriggerTypes::IsDateTime(attribute.getTriggerType())
                 ? static_cast<quint8>(attribute.getTriggerType())
                 : 0),
      m_ended(attribute.getTriggerEndFlag() != 0), m_lastDay(attribute.getDayLastFlag() == 1) {
    const QString start = attribute.getStartTime();
    if (!start.isEmpty()) {
        m_startState = LocalTime::ParseWall(start, m_startWall) ? Start::Valid : Start::Invalid;
    }
    m_hasEnd = LocalTime::ParseWall(attribute.getEndTime(), m_endWall);
    bool empty = false;
    m_weekDays = static_cast<quint8>(Bits(attribute.getWeekDays(), 7, kAllWeekDays, empty));
    m_months = static_cast<quint16>(Bits(attribute.getWhichMoths(), 12, kAllMonths, empty));
    m_monthDays = Bits(attribute.getMonthDays(), 31, 0, empty);
    m_everyMonthDay = empty && !m_lastDay;
}

qint64 CalendarRule::startTimeOfDay() const {
    return WallTime::TimeOfDay(m_startWall);
}

void CalendarRule::setStartWall(qint64 wall) {
    m_startWall = wall;
    m_startState = Start::Valid;
}

bool CalendarRule::AllowsDate(const QDate& date) const {
    switch (m_type) {
    case TriggerTypes::kOnce:
    case TriggerTypes::kDaily:
        return true;
    case TriggerTypes::kWeekly:
        return AllowsWeekDay(date);
    case TriggerTypes::kMonthly:
        return AllowsMonthDay(date);
    default:
        return false;
    }
}

bool CalendarRule::NextDate(const QDate& from, QDate& date) const {
    switch (m_type) {
    case TriggerTypes::kOnce:
    case TriggerTypes::kDaily:
        date = from.addDays(1);
        return true;
    case TriggerTypes::kWeekly:
        return NextWeekDay(from, date);
    case TriggerTypes::kMonthly:
        return NextMonthDay(from, date);
    default:
        return false;
    }
}

bool CalendarRule::AllowsWeekDay(const QDate& date) const {
    return (m_weekDays & (1u << date.dayOfWeek())) != 0;
}

quint32 CalendarRule::MonthDaysOf(const QDate& month) const {
    if (m_everyMonthDay) {
        return kAllMonthDays;
    }
    return m_lastDay ? m_monthDays | (1u << month.daysInMonth()) : m_monthDays;
}

bool CalendarRule::AllowsMonthDay(const QDate& date) const {
    return (MonthDaysOf(date) & (1u << date.day())) != 0 && (m_months & (1u << date.month())) != 0;
}

// The next listed day of the week after `from`; a list of `from`'s own day
// alone gives the same day a week later.
bool CalendarRule::NextWeekDay(const QDate& from, QDate& date) const {
    const int w = from.dayOfWeek();
    for (int step = 1; step <= 7; ++step) {
        if ((m_weekDays & (1u << ((w - 1 + step) % 7 + 1))) != 0) {
            date = from.addDays(step);
            return true;
        }
    }
    return false;
}

// The first date after `from` whose month the month list allows and whose day
// the month-day list allows (the last-day flag applied for that date's own
// month). Months without an allowed day are skipped, so a listed day beyond a
// month's length simply does not occur in that month.
bool CalendarRule::NextMonthDay(const QDate& from, QDate& date) const {
    if (m_months == 0) {
        return false;
    }
    QDate month(from.year(), from.month(), 1);
    int after = from.day();
    for (int i = 0; i <= kSearchYears * 12; ++i, month = month.addMonths(1), after = 0) {
        if ((m_months & (1u << month.month())) == 0 || after >= month.daysInMonth()) {
            continue;
        }
        const quint32 days = MonthDaysOf(month) & Range(after + 1, month.daysInMonth());
        if (days != 0) {
            date = QDate(month.year(), month.month(), static_cast<int>(qCountTrailingZeroBits(days)));
            return true;
        }
    }
    return false;
}
