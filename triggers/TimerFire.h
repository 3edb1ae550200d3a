#pragma once

#include "DateTimeFire.h"

#include "timing/DeadlineTimer.h"

// Calendar trigger fire of the timer mode: a timer armed for the next start
// time. The timer is a DeadlineTimer, aimed at the wall-clock instant itself,
// so a suspend, a clock step or a wait beyond the 24.8 days of a Qt timer
// cannot move the run.
//
// The fire is its own timer rather than holding one, and what happens beyond
// the fire (a time-out, an arming from another thread) travels through the
// host with the fire's plan and serial: each of a million fires keeps only
// what tells it apart.
class TimerFire : public DateTimeFire, private DeadlineTimer {
public:
    // Its time-outs go to the fire's host.
    TimerFire() = default;

    void SetTriggerObject(TriggerObject* object) override;
    quint64 Start() override;
    void Stop() override;
    // Arms the timer for the wait, on the fire's own thread; a wait of 0 or
    // less marks the fire failed.
    void StartWaitTimer(qint64 wait);
    // The same, for a wait that was measured from `current` to `due`: the
    // timer aims at `due` itself, whatever time passed since `current`.
    void StartWaitTimer(qint64 currentMSecs, qint64 dueMSecs);
    // Aims the timer at `dueMSecs`, then every `interval` ms; on the fire's
    // own thread, where the host hands an arming made on another.
    void Arm(qint64 dueMSecs, qint64 interval);
    // Aims an armed timer at the stored next start time again, read as local
    // time in the zone now in force. On the fire's own thread.
    void RearmFromNextStartTime();
    // Hands the host a time-out of no known due instant, which is taken as
    // late, unless the fire was stopped.
    void ontimeout();
    void onkillDateTimer() override;
    TimerFire* AsTimerFire() override { return this; }

    // Tells this fire from one that took its place, and its address, later.
    // It repeats only after four billion fires.
    quint32 serial() const { return m_serial; }
    void setSerial(quint32 serial) { m_serial = serial; }

    // Kept when the fire is stopped and lets go of its trigger.
    const QString& planUuid() const { return m_planUuid; }
    qint64 armedIntervalMSecs() const { return interval(); }
    qint64 armedDueMSecs() const { return dueMSecs(); }
    bool isArmed() const { return isActive(); }

private:
    void Expired(qint64 expiredDueMSecs) override;
    void HandOver(qint64 expiredDueMSecs);
    bool Resume(qint64 current, qint64& next);

    bool m_connected = false;
    quint32 m_serial = 0;
    QString m_planUuid;
};
