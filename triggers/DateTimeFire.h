#pragma once

#include "TriggerFire.h"

#include <QDateTime>

struct ScheduleResult;

// Fire of the calendar trigger types (once, daily, weekly, monthly). The
// computation itself is CalendarSchedule's; the fire applies each result to
// its trigger object and publishes it. Its two subclasses only decide how the
// computed time is waited for.
class DateTimeFire : public TriggerFire {
public:
    DateTimeFire();

    quint64 Start() override;
    void Stop() override;

    // Computes the next start time after now; writes next only for state 3.
    quint64 SeekNextStartTime(const QDateTime& now, QDateTime& next);
    // The same in milliseconds since the epoch, for the callers that visit
    // every plan: a local QDateTime costs a zone conversion each time it is
    // made or compared.
    quint64 SeekNextStartTimeAt(qint64 nowMSecs, qint64& nextMSecs);
    // The same for the poll of the minute starting at `minuteStartMSecs`,
    // which has just fired the plan when `afterRun` is set.
    quint64 SeekNextPolledStartTimeAt(qint64 minuteStartMSecs, bool afterRun, qint64& nextMSecs);
    // After a late run or a missed start: the next start of the plan's own
    // series after now.
    quint64 SeekLateStartTimeAt(qint64 nowMSecs, qint64& nextMSecs);
    quint64 getFireState() const { return m_fireState; }

    // Stops the fire's timer, if it has one; the fire keeps its trigger.
    virtual void onkillDateTimer();

protected:
    // The states of FireState, all below 256.
    void setFireState(quint64 state) { m_fireState = static_cast<quint8>(state); }

private:
    template <typename Computation> quint64 Seek(Computation compute, qint64& nextMSecs);
    void Publish(const ScheduleResult& result, qint64& nextMSecs);

    quint8 m_fireState = 0;
};
