#include "TriggerObject.h"

#include "LocalTime.h"

TriggerObject::TriggerObject(const RequestNewOperationData& data)
    : m_triggerAttribute(data.getTriggerAttribute()) {}

void TriggerObject::Read(QDataStream& in) {
    qint64 repeatCount = 0;
    qint64 startOffset = 0;
    qint64 firstSeek = 0;
    in >> m_planUuid >> m_planName;
    m_triggerAttribute.Read(in);
    m_calendarRuleStale = true;
    in >> repeatCount >> startOffset >> firstSeek >> m_nextStartTime;
    m_nextStartIsText = true;
    m_repeatCount = static_cast<quint64>(repeatCount);
    m_startOffsetSecs = static_cast<quint64>(startOffset);
    m_firstSeekDone = static_cast<quint64>(firstSeek);
}

void TriggerObject::Write(QDataStream& out) const {
    out << m_planUuid << m_planName;
    m_triggerAttribute.Write(out);
    out << static_cast<qint64>(m_repeatCount) << static_cast<qint64>(m_startOffsetSecs)
        << static_cast<qint64>(m_firstSeekDone) << getNextStartTime();
}

const CalendarRule& TriggerObject::getCalendarRule() {
    if (m_calendarRuleStale) {
        m_calendarRule = CalendarRule(m_triggerAttribute);
        m_calendarRuleStale = false;
    }
    return m_calendarRule;
}

QString TriggerObject::getNextStartTime() const {
    if (m_nextStartIsText) {
        return m_nextStartTime;
    }
    return LocalTime::FormatAt(m_nextStartMSecs, m_nextStartOffsetSecs);
}

void TriggerObject::setNextStartTime(const QString& value) {
    setNextStart(value, 0, 0);
}

void TriggerObject::setNextStart(const QDateTime& next) {
    setNextStart(LocalTime::Format(next), next.toMSecsSinceEpoch(), next.offsetFromUtc());
}

void TriggerObject::setNextStart(qint64 msecs, int offsetSecs) {
    m_nextStartMSecs = msecs;
    m_nextStartOffsetSecs = offsetSecs;
    m_nextStartIsText = msecs == 0;
    m_nextStartTime.clear();
}

void TriggerObject::setNextStart(const QString& text, qint64 msecs, int offsetSecs) {
    setNextStart(msecs, offsetSecs);
    if (msecs == 0 || text != getNextStartTime()) {
        m_nextStartTime = text;
        m_nextStartIsText = true;
    }
}
