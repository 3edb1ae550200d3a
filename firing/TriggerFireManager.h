#pragma once

#include "store/RunStateStore.h"
#include "timing/LocalZoneWatch.h"

#include <QObject>
#include <QTimer>

class TriggerFire;
class TriggerObject;

// The task scheduler's handle on trigger firing: owns the 500 ms poll timer of
// the polling mode and forwards everything else to the one worker.
class TriggerFireManager : public QObject {
    Q_OBJECT
public:
    static constexpr int kPollIntervalMSecs = 500;

    explicit TriggerFireManager(QObject* parent = nullptr);

    // Where the fires record runs, schedules and occurrences; before Init.
    static void SetRunState(RunStateRecorder* runState);
    bool Init();
    bool Start();
    void Stop();
    void UnInit();

    static TriggerFire* NewTriggerFireCommand(TriggerObject* object);
    static quint64 StartTriggerFire(TriggerFire* fire);
    static quint64 StartNewTriggerFire(TriggerObject* object);
    static bool RemoveTriggerFire(const QString& planUuid, quint64 type);
    static bool FireEventTrigger(quint64 eventType);
    static void CatchUpDowntime(const QHash<QString, RunStateStore::StoredRun>& runs);

    bool isPolling() const { return m_atTimer.isActive(); }

Q_SIGNALS:
    void killAtTimer();

public Q_SLOTS:
    void onkillAtTimer();
    void onCheckLocalTimeZone();

private:
    QTimer m_atTimer;
    // Once a minute, in both modes, whether the system time zone changed.
    QTimer m_zoneTimer;
    LocalZoneWatch m_zoneWatch;
};
