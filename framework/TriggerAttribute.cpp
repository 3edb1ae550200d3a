#include "TriggerAttribute.h"

#include "BoundedRead.h"

void TriggerAttribute::Read(QDataStream& in) {
    QString startTime;
    in >> m_triggerType >> BoundedRead(startTime) >> BoundedRead(m_endTime) >> m_interval >> m_duration >>
        BoundedRead(m_weekDays) >> BoundedRead(m_whichMoths) >> BoundedRead(m_monthDays) >> m_dayLastFlag >>
        m_triggerEndFlag;
    m_startTime = PackedDateTimeText(startTime);
}

void TriggerAttribute::Write(QDataStream& out) const {
    out << m_triggerType << m_startTime.text() << m_endTime << m_interval << m_duration << m_weekDays
        << m_whichMoths << m_monthDays << m_dayLastFlag << m_triggerEndFlag;
}

bool TriggerAttribute::operator==(const TriggerAttribute& other) const {
    return m_triggerType == other.m_triggerType && m_startTime == other.m_startTime &&
           m_endTime == other.m_endTime && m_interval == other.m_interval && m_duration == other.m_duration &&
           m_weekDays == other.m_weekDays && m_whichMoths == other.m_whichMoths &&
           m_monthDays == other.m_monthDays && m_dayLastFlag == other.m_dayLastFlag &&
           m_triggerEndFlag == other.m_triggerEndFlag;
}
