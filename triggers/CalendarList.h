#pragma once

#include <QList>
#include <QString>

// One calendar list of a trigger (week days, months or month days) read from
// its text. Values outside the list's range are dropped; a list that had values
// but none in range can never match, which is not the same as an empty list
// (no restriction).
class CalendarList {
public:
    CalendarList(const QString& text, quint64 lowest, quint64 highest);

    const QList<quint64>& values() const { return m_values; }
    bool isEmpty() const { return m_values.isEmpty() && !m_impossible; }
    bool impossible() const { return m_impossible; }
    bool allows(quint64 value) const;
    // Adds the last day of a month to a month-day list, as the last-day flag asks.
    void addLastDay(quint64 day);

private:
    QList<quint64> m_values;
    bool m_impossible = false;
};
