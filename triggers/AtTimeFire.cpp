#include "AtTimeFire.h"

#include "CalendarSchedule.h"
#include "FireState.h"
#include "LocalTime.h"
#include "TriggerObject.h"

quint64 AtTimeFire::Start() {
    return FireState::kScheduled;
}

void AtTimeFire::Stop() {
    SetTriggerObject(nullptr);
}

bool AtTimeFire::DueMinuteStart(const TriggerObject& object, qint64& minuteStartMSecs) {
    const qint64 msecs = object.getNextStartMSecs();
    if (msecs == 0) {
        return !object.getNextStartTime().isEmpty() &&
               CachedMinuteStart(object.getNextStartTime(), minuteStartMSecs);
    }
    const qint64 local = msecs + static_cast<qint64>(object.getNextStartOffsetSecs()) * 1000;
    minuteStartMSecs = msecs - (((local % 60000) + 60000) % 60000);
    return true;
}

bool AtTimeFire::CachedMinuteStart(const QString& text, qint64& minuteStartMSecs) {
    if (text != m_cachedText || m_cachedText.isEmpty()) {
        m_cachedText = text;
        const QDateTime next = LocalTime::Parse(text);
        m_cachedValid = next.isValid();
        if (m_cachedValid) {
            m_cachedMinuteStartMSecs = CalendarSchedule::MinuteStart(next).toMSecsSinceEpoch();
        }
    }
    minuteStartMSecs = m_cachedMinuteStartMSecs;
    return m_cachedValid;
}
