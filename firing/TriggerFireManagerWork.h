#pragma once

#include "MissedRunCatchUp.h"
#include "OccurrenceRecorder.h"
#include "store/RunStateBatchHold.h"

#include <QHash>
#include <QMultiHash>
#include <QMutex>
#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class TimerFire;
class TriggerFire;
class TriggerObject;

// Holds every live trigger fire: the date-time table (one fire per plan) and
// the event table (fires keyed by event type), each under its own
// non-recursive mutex. The registry mutex may be held while a table mutex is
// taken, never the other way round; the two table mutexes are never held
// together.
//
// Every fire is moved to this object's thread (the application thread) when it
// is created, so that timers are only ever armed, stopped and destroyed there.
// A fire removed from another thread leaves its table under the lock and is
// deleted on the application thread, whose destructor stops its timer there:
// no thread but its own ever touches a fire that has left its table.
class TriggerFireManagerWork : public QObject {
    Q_OBJECT
public:
    static TriggerFireManagerWork& Instance();

    // Where runs, schedules and occurrences are recorded; before Init.
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

    // Work done by one slice of a poll pass before the table lock is given up
    // for the rest of the event loop; tests shorten it to see passes cut.
    static constexpr qint64 kPollSliceNSecs = 10 * 1000 * 1000;
    void setPollSliceNSecs(qint64 nsecs) { m_pollSliceNSecs = nsecs; }

    // Inspection for tests and benchmarks.
    int DateTimeFireCount();
    int EventFireCount(quint64 eventType);
    TriggerFire* DateTimeFireOf(const QString& planUuid);

private Q_SLOTS:
    void onAtTimerOut();
    void onTimerFireTimeout(QString planName, quint64 fireId);

private:
    friend class TriggerFireManager;

    TriggerFireManagerWork();
    bool InsertDateTimeFireLocked(const QString& planUuid, TriggerFire* fire);
    TriggerFire* NewDateTimeFireLocked(TriggerObject* object);
    bool PollOne(TriggerFire* fire, qint64& earliestDueMSecs);
    void ContinuePollPass();
    bool StartAllTriggerFiresHeld();
    void RunPollSliceLocked();
    // Closes the open pass, if any, and lets the run state write what it
    // held for the pass.
    void EndPassLocked();
    bool PollSliceLocked();
    bool PollFirstSliceLocked(QElapsedTimer& slice);
    bool PollLaterSliceLocked(QElapsedTimer& slice);
    bool SliceUsedUp(int& visited, const QElapsedTimer& slice) const;
    void EndTimerFire(const QString& planUuid, TriggerFire* fire, TriggerObject* object, quint64 state);
    bool CaughtUpLater(const QString& planUuid, TimerFire* fire, TriggerObject* object);
    bool RunMissedStart(const QString& planUuid, const QString& missedStart, qint64 delayMSecs);
    void ForgetStartsStillAhead(QHash<QString, RunStateStore::StoredRun>& runs);
    void EndTrigger(TriggerObject* object, const QString& fireClass);

    QHash<QString, TriggerFire*>* m_dateTimeFires = nullptr;
    QMutex m_dateTimeMutex;
    QMultiHash<quint64, TriggerFire*>* m_eventFires = nullptr;
    QMutex m_eventMutex;
    // Created by Init on the application thread; touched only there.
    std::unique_ptr<MissedRunCatchUp> m_catchUp;
    OccurrenceRecorder m_occurrences;
    RunStateRecorder* m_runState = nullptr;
    // Held from the start of a poll pass to its end, over all its slices.
    std::optional<RunStateBatchHold> m_passHold;
    // No fire of the date-time table is due before this time, so polls until
    // then need not walk the table. Any insertion clears it. Guarded by
    // m_dateTimeMutex.
    qint64 m_pollIdleUntilMSecs = 0;
    // A poll pass that does more than one slice of work (the first poll after
    // start-up computes and reports every trigger) goes on where it stopped
    // on a later turn of the event loop, so that plan commands waiting for
    // the table lock are served in between. Those commands change the table,
    // and a QHash iterator does not survive a change (an insertion or a
    // removal may rehash it), so a pass cut short keeps the keys it has still
    // to visit and goes on by key: a plan removed meanwhile is skipped, one
    // replaced is polled in its new fire, one added waits for the next pass,
    // which comes at once. A pass holds the run state's batch until it ends,
    // so that its changes go in one transaction. All guarded by
    // m_dateTimeMutex.
    bool m_passOpen = false;
    QVector<QString> m_passKeys;
    int m_passKeyIndex = 0;
    qint64 m_passEarliestDueMSecs = 0;
    bool m_sliceScheduled = false;
    qint64 m_pollSliceNSecs = kPollSliceNSecs;
};
