#pragma once

#include <QDate>
#include <QtGlobal>

class TriggerAttribute;

// A trigger's calendar definition as the start-time computation reads it,
// parsed once from the attribute's texts: the lists as bit sets, start and end
// as wall-clock readings (WallTime), so that a computation parses nothing.
// Readings rather than instants keep the rule right when the zone changes.
//
// The calendar day rules live here too: which dates a weekly or monthly
// trigger allows, and the next such date.
class CalendarRule {
public:
    CalendarRule() = default;
    explicit CalendarRule(const TriggerAttribute& attribute);

    // 0 for a type without a calendar.
    quint64 type() const { return m_type; }
    // Spans beyond TriggerCheck::kMaxSpanSecs read as one second more.
    quint64 interval() const { return m_interval; }
    quint64 duration() const { return m_duration; }
    bool ended() const { return m_ended; }
    // An empty start text: the first computation fills in the current minute.
    bool startIsEmpty() const { return m_startState == Start::Empty; }
    bool startIsValid() const { return m_startState == Start::Valid; }
    qint64 startWall() const { return m_startWall; }
    qint64 startTimeOfDay() const;
    bool hasEnd() const { return m_hasEnd; }
    qint64 endWall() const { return m_endWall; }

    // Takes a start that the first computation filled in.
    void setStartWall(qint64 wall);

    // Whether a trigger of this rule's type may start on `date`.
    bool AllowsDate(const QDate& date) const;
    // The first date after `from` on which it may start; false when there is
    // none within the search horizon or the type has no calendar.
    bool NextDate(const QDate& from, QDate& date) const;

    // Date searches stop after this many years of calendar: lists that can
    // never match end the computation with an error, never with a hang.
    static constexpr int kSearchYears = 9;

private:
    enum class Start : quint8 { Empty, Valid, Invalid };

    bool AllowsWeekDay(const QDate& date) const;
    bool AllowsMonthDay(const QDate& date) const;
    bool NextWeekDay(const QDate& from, QDate& date) const;
    bool NextMonthDay(const QDate& from, QDate& date) const;
    quint32 MonthDaysOf(const QDate& month) const;

    // Held compactly: every registered plan keeps one.
    qint64 m_startWall = 0;
    qint64 m_endWall = 0;
    quint32 m_interval = 0;
    quint32 m_duration = 0;
    // Bit n stands for value n. An empty list text allows every value; a list
    // whose values all lie outside the range allows none.
    quint32 m_monthDays = 0;
    quint16 m_months = 0;
    quint8 m_weekDays = 0;
    quint8 m_type = 0;
    bool m_ended = false;
    // An empty month-day list without the last-day flag: every day.
    bool m_everyMonthDay = true;
    bool m_lastDay = false;
    bool m_hasEnd = false;
    Start m_startState = Start::Empty;
};
