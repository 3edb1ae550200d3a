#pragma once

#include "DateTimeFire.h"

#include <QTimer>

// Calendar trigger fire of the timer mode: its own timer armed for the wait to
// the next start time. A timer interval is a signed 32-bit count of
// milliseconds (at most about 24.8 days), and a timer may wake a little early,
// so the fire keeps the due time and re-arms for what is left until it is
// reached; only then does it signal its plan.
class TimerFire : public DateTimeFire {
    Q_OBJECT
public:
    explicit TimerFire(QObject* parent = nullptr);
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

    // Unique in the process for the life of the process.
    quint64 fireId() const { return m_fireId; }
    int armedIntervalMSecs() const { return m_timer.interval(); }
    bool isArmed() const { return m_timer.isActive(); }

private Q_SLOTS:
    void ontimeout();
    void onkillDateTimer() override;

private:
    void Arm();
    void ArmFor(qint64 remaining);

    QTimer m_timer;
    const quint64 m_fireId;
    QString m_planUuid;
    qint64 m_waitMSecs = 0;
    qint64 m_dueMSecs = 0;
};
