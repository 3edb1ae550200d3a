#include "AtTimeFire.h"

#include "FireState.h"

AtTimeFire::AtTimeFire(QObject* parent) : DateTimeFire(parent) {}

quint64 AtTimeFire::Start() {
    return FireState::kScheduled;
}

void AtTimeFire::Stop() {
    SetTriggerObject(nullptr);
}

bool AtTimeFire::CachedNextStart(const QString& text, qint64& nextMSecs, qint64& minuteStartMSecs) {
    if (text != m_cachedText || m_cachedText.isEmpty()) {
        m_cachedText = text;
        const QDateTime next = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        m_cachedValid = next.isValid();
        if (m_cachedValid) {
            QDateTime minuteStart = next;
            minuteStart.setTime(QTime(next.time().hour(), next.time().minute()));
            m_cachedNextMSecs = next.toMSecsSinceEpoch();
            m_cachedMinuteStartMSecs = minuteStart.toMSecsSinceEpoch();
        }
    }
    nextMSecs = m_cachedNextMSecs;
    minuteStartMSecs = m_cachedMinuteStartMSecs;
    return m_cachedValid;
}
