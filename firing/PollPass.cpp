#include "PollPass.h"

#include "framework/Clock.h"

#include <QTimer>

#include <limits>

PollPass::PollPass(FireTables& tables, PollOne pollOne, QObject* parent)
    : QObject(parent), m_tables(tables), m_pollOne(std::move(pollOne)) {}

PollPass::~PollPass() {
    QMutexLocker locker(&m_tables.dateTimeMutex());
    ForgetPlaceLocked();
}

void PollPass::Tick(Cut cut) {
    QMutexLocker locker(&m_tables.dateTimeMutex());
    if (m_tables.dateTimeLocked() == nullptr || m_open || Clock::nowMSecsSinceEpoch() < m_idleUntilMSecs) {
        return;
    }
    m_open = true;
    m_whole = cut == Cut::Whole;
    m_hold.emplace(m_runState);
    m_place = m_tables.dateTimeLocked()->begin();
    m_earliestDueMSecs = std::numeric_limits<qint64>::max();
    RunSliceLocked();
}

void PollPass::SetRunStateLocked(RunStateRecorder* runState) {
    m_hold.reset();
    m_runState = runState;
}

void PollPass::ResetLocked() {
    m_idleUntilMSecs = 0;
    EndLocked();
}

// The open pass does not visit a fire added behind its back; the pass that
// follows it comes at once and does.
void PollPass::NoteChangedLocked() {
    m_idleUntilMSecs = 0;
    m_earliestDueMSecs = 0;
}

void PollPass::EndLocked() {
    if (m_open) {
        m_open = false;
        m_hold.reset();
    }
    ForgetPlaceLocked();
    m_keys.clear();
    m_keys.squeeze();
}

void PollPass::Continue() {
    QMutexLocker locker(&m_tables.dateTimeMutex());
    m_sliceScheduled = false;
    if (m_tables.dateTimeLocked() != nullptr && m_open) {
        RunSliceLocked();
    }
}

void PollPass::RunSliceLocked() {
    if (SliceLocked()) {
        EndLocked();
        m_idleUntilMSecs = m_earliestDueMSecs;
        return;
    }
    if (!m_sliceScheduled) {
        m_sliceScheduled = true;
        // A short pause rather than a posted call, so that a plan command
        // blocked on the table lock is sure to get it before the next slice.
        QTimer::singleShot(1, Qt::PreciseTimer, this, &PollPass::Continue);
    }
}

// One slice of the open pass; true when the pass has reached the end.
bool PollPass::SliceLocked() {
    QElapsedTimer slice;
    slice.start();
    return m_place ? WalkSliceLocked(slice) : KeySliceLocked(slice);
}

bool PollPass::SliceUsedUp(int& visited, const QElapsedTimer& slice) const {
    return !m_whole && (++visited & 15) == 0 && slice.nsecsElapsed() >= m_sliceNSecs;
}

bool PollPass::Visit(TriggerFire* fire) {
    return fire == nullptr || m_pollOne(fire, m_earliestDueMSecs);
}

// Walks the table itself from the place kept; a walk cut short keeps its
// place until the table is about to change.
bool PollPass::WalkSliceLocked(const QElapsedTimer& slice) {
    FireTables::DateTimeTable& table = *m_tables.dateTimeLocked();
    int visited = 0;
    auto it = *m_place;
    ForgetPlaceLocked();
    while (it != table.end()) {
        if (SliceUsedUp(visited, slice)) {
            KeepPlaceLocked(it);
            return false;
        }
        TriggerFire* fire = it.value();
        if (Visit(fire)) {
            ++it;
            continue;
        }
        it = table.erase(it);
        FireTables::Retire(fire);
    }
    return true;
}

void PollPass::KeepPlaceLocked(FireTables::DateTimeTable::iterator place) {
    m_place = place;
    m_tables.SetBeforeDateTimeChangeLocked([this] { TakeRemainingKeysLocked(); });
}

void PollPass::TakeRemainingKeysLocked() {
    FireTables::DateTimeTable& table = *m_tables.dateTimeLocked();
    m_keys.reserve(table.size());
    for (auto it = *m_place; it != table.end(); ++it) {
        m_keys.append(it.key());
    }
    m_keyIndex = 0;
    m_place.reset();
}

void PollPass::ForgetPlaceLocked() {
    if (m_place) {
        m_place.reset();
        m_tables.SetBeforeDateTimeChangeLocked(nullptr);
    }
}

bool PollPass::KeySliceLocked(const QElapsedTimer& slice) {
    FireTables::DateTimeTable& table = *m_tables.dateTimeLocked();
    int visited = 0;
    while (m_keyIndex < m_keys.size()) {
        if (SliceUsedUp(visited, slice)) {
            return false;
        }
        const auto it = table.find(m_keys.at(m_keyIndex++));
        TriggerFire* fire = it != table.end() ? it.value() : nullptr;
        if (Visit(fire)) {
            continue;
        }
        table.erase(it);
        FireTables::Retire(fire);
    }
    return true;
}
