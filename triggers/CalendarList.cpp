#include "CalendarList.h"

#include "framework/CommonTools.h"

CalendarList::CalendarList(const QString& text, quint64 lowest, quint64 highest) {
    QList<quint64> raw;
    CommonTools::StringToList(text, raw);
    for (quint64 value : raw) {
        if (value >= lowest && value <= highest) {
            m_values.append(value);
        }
    }
    m_impossible = !raw.isEmpty() && m_values.isEmpty();
}

bool CalendarList::allows(quint64 value) const {
    if (m_impossible) {
        return false;
    }
    return m_values.isEmpty() || m_values.contains(value);
}

void CalendarList::addLastDay(quint64 day) {
    if (!m_values.contains(day)) {
        m_values.append(day);
    }
    m_impossible = false;
}
