#pragma once

#include "DateTimeFire.h"

// Calendar trigger fire of the polling mode: no timer; the fire manager's poll
// reads the trigger's next start time and fires it when its minute has come.
class AtTimeFire : public DateTimeFire {
    Q_OBJECT
public:
    explicit AtTimeFire(QObject* parent = nullptr);

    quint64 Start() override;
    void Stop() override;

    bool getAtTimeFlag() const { return m_atTime; }
    void setAtTimeFlag(bool value) { m_atTime = value; }

    // The start of the minute of the next start time text, in milliseconds
    // since the epoch. The text is parsed again only when it changed, so that a
    // poll over fires that are not due parses nothing. False when the text is
    // empty or does not parse.
    bool CachedMinuteStart(const QString& text, qint64& minuteStartMSecs);
    // The same text means another instant once the local time zone changed.
    void ForgetCachedMinute() { m_cachedText.clear(); }

private:
    bool m_atTime = true;
    QString m_cachedText;
    bool m_cachedValid = false;
    qint64 m_cachedMinuteStartMSecs = 0;
};
