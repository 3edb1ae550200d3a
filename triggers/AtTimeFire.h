#pragma once

#include "DateTimeFire.h"

#include <QString>

#include <memory>

// Calendar trigger fire of the polling mode: no timer; the fire manager's poll
// reads the trigger's next start time and fires it when its minute has come.
class AtTimeFire : public DateTimeFire {
public:
    quint64 Start() override;
    void Stop() override;
    AtTimeFire* AsAtTimeFire() override { return this; }

    bool getAtTimeFlag() const { return m_atTime; }
    void setAtTimeFlag(bool value) { m_atTime = value; }

    // The start of the minute of the trigger's next start, in milliseconds
    // since the epoch: from its instant, or, where only a text names it, from
    // the text read as local time, parsed again only when it changed, so that
    // a poll over fires that are not due parses nothing. False when there is
    // no next start.
    bool DueMinuteStart(const TriggerObject& object, qint64& minuteStartMSecs);
    // The same text means another instant once the local time zone changed.
    void ForgetCachedMinute();

private:
    struct CachedMinute {
        QString text;
        bool valid = false;
        qint64 minuteStartMSecs = 0;
    };

    bool CachedMinuteStart(const QString& text, qint64& minuteStartMSecs);

    bool m_atTime = true;
    // Made only for a start that is a text alone (a damaged run state, a
    // test), so that the fires of computed starts stay one allocation class
    // smaller.
    std::unique_ptr<CachedMinute> m_cached;
};
