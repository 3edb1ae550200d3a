#pragma once

#include "FireTables.h"

#include "store/RunStateBatchHold.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QVector>

#include <functional>
#include <optional>

class TriggerFire;

// The polling mode's walk over the date-time table, once a poll tick finds a
// fire due.
//
// A pass that does more than one slice of work (a clock step or a zone change
// can make every plan due at once) goes on where it stopped on a later turn
// of the event loop, so that plan commands waiting for the table lock are
// served in between. A pass cut short keeps its place in the table; when a
// command is about to change the table (an insertion or a removal may rehash
// it, and the place with it), the pass first takes the keys it has still to
// visit and goes on by key: a plan removed meanwhile is skipped, one replaced
// is polled in its new fire, one added waits for the next pass, which comes at
// once. A pass holds the run state's batch until it ends, so that its changes
// go in one transaction.
//
// All state is guarded by the table's date-time mutex. Lives on the
// application thread.
class PollPass : public QObject {
    Q_OBJECT
public:
    // Polls one fire; false when the fire has ended and leaves the table.
    // Lowers `earliestDueMSecs` to the start of the minute it is due next.
    using PollOne = std::function<bool(TriggerFire* fire, qint64& earliestDueMSecs)>;

    // Work done by one slice before the table lock is given up for the rest
    // of the event loop.
    static constexpr qint64 kSliceNSecs = 10 * 1000 * 1000;

    PollPass(FireTables& tables, PollOne pollOne, QObject* parent = nullptr);
    ~PollPass() override;

    // How an opened pass gives the event loop its turns.
    enum class Cut { Slices, Whole };

    // A poll tick: opens a pass unless one is open or no fire is due yet.
    // A whole pass is not cut: the start-up's first pass, like the timer
    // mode's start, computes and reports every plan in one go, so that the
    // agent's answers, which arrive meanwhile, wait until it ends instead of
    // taking turns with it.
    void Tick(Cut cut = Cut::Slices);
    // Closes the open pass, if any, and forgets when the next fire is due.
    void ResetLocked();
    // The table changed behind the open pass's back: a fire joined it, or
    // the zone moved every instant.
    void NoteChangedLocked();
    void setSliceNSecs(qint64 nsecs) { m_sliceNSecs = nsecs; }
    // Where a pass holds the batch; an open pass lets go of the one before.
    void SetRunStateLocked(RunStateRecorder* runState);

private:
    void Continue();
    void RunSliceLocked();
    void EndLocked();
    bool SliceLocked();
    bool WalkSliceLocked(const QElapsedTimer& slice);
    bool KeySliceLocked(const QElapsedTimer& slice);
    void KeepPlaceLocked(FireTables::DateTimeTable::iterator place);
    void TakeRemainingKeysLocked();
    void ForgetPlaceLocked();
    bool SliceUsedUp(int& visited, const QElapsedTimer& slice) const;
    bool Visit(TriggerFire* fire);

    FireTables& m_tables;
    PollOne m_pollOne;
    // No fire of the table is due before this time, so ticks until then need
    // not walk the table. Any insertion clears it.
    qint64 m_idleUntilMSecs = 0;
    bool m_open = false;
    // Where a walk cut short goes on, as long as the table has not changed.
    std::optional<FireTables::DateTimeTable::iterator> m_place;
    QVector<QString> m_keys;
    int m_keyIndex = 0;
    qint64 m_earliestDueMSecs = 0;
    bool m_sliceScheduled = false;
    qint64 m_sliceNSecs = kSliceNSecs;
    bool m_whole = false;
    RunStateRecorder* m_runState = nullptr;
    // Held from the start of a pass to its end, over all its slices.
    std::optional<RunStateBatchHold> m_hold;
};
