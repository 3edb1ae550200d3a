#pragma once

#include "AtTimeDispatch.h"
#include "DowntimeCatchUp.h"
#include "FireTables.h"
#include "FiringContext.h"
#include "PollPass.h"
#include "TimerDispatch.h"

#include "triggers/FireHost.h"

#include <QHash>
#include <QObject>
#include <QString>

#include <atomic>
#include <functional>

class TriggerFire;
class TriggerObject;

// The fire worker: creates, lists, starts, stops and removes the fires of every
// plan, and hands each time-out and poll tick to the part that handles it.
// The tables are in FireTables, the polling mode's pass in PollPass, a poll of
// one fire in AtTimeDispatch, a timer's time-out in TimerDispatch, the starts
// missed while down in DowntimeCatchUp.
//
// Every fire is moved to this object's thread (the application thread) when it
// is created, so that timers are only ever armed, stopped and destroyed there.
class TriggerFireManagerWork : public QObject, public FireHost {
    Q_OBJECT
public:
    // Told of each command the agent link took, with the trigger it was built
    // from, on the thread that sent it.
    using HandedRecorder = std::function<void(const TriggerObject& sent, quint64 commandType)>;

    static TriggerFireManagerWork& Instance();

    // Whoever keeps the run state sets both before the fires start.
    void SetHandedRecorder(HandedRecorder recorder) { m_handedRecorder = std::move(recorder); }
    // Where runs, schedules and occurrences are recorded.
    void SetRunState(RunStateRecorder* runState);

    bool Init();
    bool LoadTriggerFires();
    TriggerFire* NewTriggerFire(quint64 type, TriggerObject* object);
    bool InsertTriggerFire(const QString& planUuid, quint64 type, TriggerFire* fire);
    TriggerFire* NewTriggerFireCommand(TriggerObject* object);
    quint64 StartTriggerFire(TriggerFire* fire);
    // Creates and starts the fire of a plan command and lists it once it is
    // started: 0 started and listed, 1 no fire, 2 finished or failed (not
    // listed). Until it is listed no other thread can reach the fire, so no
    // poll or time-out can end and delete it while it starts; starting it
    // under the table lock instead would hold up every poll for the start's
    // report to the agent.
    quint64 StartNewTriggerFire(TriggerObject* object);
    bool StartAllTriggerFires();
    void StopAllTriggerFires();
    bool RemoveTriggerFire(const QString& planUuid, quint64 type);
    void DeleteAllTriggerFires();
    void UnInit();
    bool FireEventTrigger(quint64 eventType);
    // After a change of the local time zone: timer fires aim again at their
    // stored next start times, which keep meaning local time, and the poll
    // reads the texts again. On the application thread.
    void LocalTimeZoneChanged();
    // Catches up, under the missed-run policy, the starts that passed while the
    // service was down; call once the fires have started.
    void CatchUpDowntime(const QHash<QString, RunStateStore::StoredRun>& runs);

    // Tests shorten a poll slice to see passes cut.
    void setPollSliceNSecs(qint64 nsecs) { m_pollPass.setSliceNSecs(nsecs); }

    // Inspection for tests and benchmarks.
    int DateTimeFireCount() { return m_tables.DateTimeCount(); }
    int EventFireCount(quint64 eventType) { return m_tables.EventCount(eventType); }
    TriggerFire* DateTimeFireOf(const QString& planUuid) { return m_tables.DateTimeFireOf(planUuid); }

    bool Send(const TriggerObject& object, quint64 commandType) override;
    void TimerExpired(TimerFire& fire, qint64 expiredDueMSecs) override;
    void ArmAtHome(TimerFire& fire, qint64 dueMSecs, qint64 interval) override;
    QObject* FireHome() override;

private Q_SLOTS:
    void onAtTimerOut();
    // The start-up's first poll, as one pass that is not cut into slices.
    void PollWhole();

private:
    friend class TriggerFireManager;

    TriggerFireManagerWork();
    bool InsertDateTimeFireLocked(const QString& planUuid, TriggerFire* fire);
    TriggerFire* NewDateTimeFireLocked(TriggerObject* object);
    TriggerFire* NewTimerFire();
    bool StartAllTriggerFiresHeld();

    FireTables m_tables;
    FiringContext m_context{m_tables, *this};
    PollPass m_pollPass;
    AtTimeDispatch m_atTime{m_context};
    TimerDispatch m_timer{m_context};
    DowntimeCatchUp m_downtime{m_context};
    HandedRecorder m_handedRecorder;
    // Fires are made on the command handler's thread as well as here.
    std::atomic<quint32> m_timerFireSerials{0};
};
