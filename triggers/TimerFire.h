#pragma once

#include "DateTimeFire.h"

#include "timing/DeadlineTimer.h"

#include <QSharedData>

// Calendar trigger fire of the timer mode: a timer armed for the next start
// time. The timer is a DeadlineTimer, aimed at the wall-clock instant itself,
// so a suspend, a clock step or a wait beyond the 24.8 days of a Qt timer
// cannot move the run.
class TimerFire : public DateTimeFire {
public:
    // Its time-outs go to the fire's host.
    TimerFire();
    ~TimerFire() override;

    void SetTriggerObject(TriggerObject* object) override;
    quint64 Start() override;
    void Stop() override;
    // Arms the timer for the wait, on the fire's own thread; a wait of 0 or
    // less marks the fire failed.
    void StartWaitTimer(qint64 wait);
    // The same, for a wait that was measured from `current` to `due`: the
    // timer aims at `due` itself, whatever time passed since `current`.
    void StartWaitTimer(const QDateTime& current, const QDateTime& due);
    // Aims an armed timer at the stored next start time again, read as local
    // time in the zone now in force. On the fire's own thread.
    void RearmFromNextStartTime();
    // Hands the time-out to the host, unless the fire was stopped.
    void ontimeout();
    void onkillDateTimer() override;
    TimerFire* AsTimerFire() override { return this; }

    // Tells this fire from one that took its place, and its address, later.
    // It repeats only after four billion fires.
    quint32 serial() const { return m_serial; }
    void setSerial(quint32 serial) { m_serial = serial; }

    // Kept when the fire is stopped and lets go of its trigger.
    const QString& planUuid() const { return m_planUuid; }
    qint64 armedIntervalMSecs() const { return m_timer.interval(); }
    qint64 armedDueMSecs() const { return m_timer.dueMSecs(); }
    bool isArmed() const { return m_timer.isActive(); }
    // The due instant of the latest expiry, as the wall clock had it. It lies
    // well before the current time when a clock step or a sleep passed over it.
    qint64 expiredDueMSecs() const { return m_expiredDueMSecs; }

private:
    // Shared with the armings queued from another thread; null once the fire
    // is gone.
    struct ArmToken : QSharedData {
        TimerFire* fire = nullptr;
    };

    void Arm(qint64 dueMSecs, qint64 interval);
    void ArmAtHome(qint64 dueMSecs, qint64 interval);
    void onTimerExpired(qint64 dueMSecs);
    bool Resume(const QDateTime& current, QDateTime& next);

    // First: they fill the padding behind the base's narrow fields.
    bool m_connected = false;
    quint32 m_serial = 0;
    DeadlineTimer m_timer;
    QString m_planUuid;
    qint64 m_expiredDueMSecs = 0;
    // Made only when the fire is armed from another thread.
    QExplicitlySharedDataPointer<ArmToken> m_armToken;
};
