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
    if (m_cached == nullptr) {
        m_cached = std::make_unique<CachedMinute>();
    }
    CachedMinute& cached = *m_cached;
    if (text != cached.text || cached.text.isEmpty()) {
        cached.text = text;
        const QDateTime next = LocalTime::Parse(text);
        cached.valid = next.isValid();
        if (cached.valid) {
            cached.minuteStartMSecs = CalendarSchedule::MinuteStart(next).toMSecsSinceEpoch();
        }
    }
    minuteStartMSecs = cached.minuteStartMSecs;
    return cached.valid;
}

void AtTimeFire::ForgetCachedMinute() {
    if (m_cached != nullptr) {
        m_cached->text.clear();
    }
}
