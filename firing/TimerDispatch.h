#pragma once

#include "FiringContext.h"

#include <QString>

class TimerFire;
class TriggerObject;

// What a time-out of a fire of the timer mode does: runs its start, or hands
// a start that a clock step or a sleep passed over to the catch-up, then arms
// a new fire for the follow-up, or ends the trigger. The caller holds the
// date-time table's lock.
class TimerDispatch {
public:
    explicit TimerDispatch(FiringContext& context) : m_context(context) {}

    // `expiredSerial` names the fire that timed out.
    void TimedOutLocked(const QString& planUuid, quint32 expiredSerial, qint64 expiredDueMSecs);

private:
    TimerFire* CurrentFireLocked(const QString& planUuid, quint32 expiredSerial);
    bool CaughtUpLater(const QString& planUuid, qint64 expiredDueMSecs, TriggerObject& object);
    bool Run(const QString& planUuid, TimerFire& fire, TriggerObject& object, qint64 expiredDueMSecs);
    void EndLocked(const QString& planUuid, TriggerObject* object, quint64 state);
    void RearmLocked(const QString& planUuid, TriggerObject* object, qint64 current, qint64 next);

    FiringContext& m_context;
};
