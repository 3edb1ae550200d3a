#pragma once

#include "FiringContext.h"

class AtTimeFire;
class TriggerFire;
class TriggerObject;

// What one poll does with one fire of the polling mode: runs the start of the
// current minute, notes a start that passed without a run, computes the
// follow-up and ends a trigger that has no start left.
class AtTimeDispatch {
public:
    explicit AtTimeDispatch(FiringContext& context) : m_context(context) {}

    // False when the fire has ended and leaves the table. Lowers
    // `earliestDueMSecs` to the start of the minute the fire is due next.
    bool Poll(TriggerFire* entry, qint64& earliestDueMSecs);

private:
    void Run(AtTimeFire& fire, TriggerObject& object, const QString& text);
    void NoteMissed(const QString& planUuid, const QString& text, qint64 nowMSecs, bool valid);
    bool FollowUp(AtTimeFire& fire, TriggerObject& object, bool fired, qint64 nowMSecs,
                  qint64& earliestDueMSecs);

    FiringContext& m_context;
};
