#include "RunStateWriter.h"

#include "platform/SignalStack.h"

#include <pthread.h>

#include <malloc.h>

RunStateWriter::RunStateWriter(RunStateTables& tables, std::function<void()> summaryChanged)
    : m_tables(tables), m_summaryChanged(std::move(summaryChanged)) {}

RunStateWriter::~RunStateWriter() {
    Stop();
}

void RunStateWriter::Start(const RunStateTables::Summary& summary) {
    Stop();
    Publish(summary);
    m_tables.LoadHealth(m_health);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_changes.clear();
        m_taking = true;
        m_stopping = false;
    }
    m_thread = std::thread([this] { Run(); });
}

// What was recorded before recording stopped is written here, after the
// thread has ended, so that nothing is left between the two.
void RunStateWriter::Stop() {
    std::vector<Change> last;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_taking = false;
        last.swap(m_changes);
        m_stopping = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    std::lock_guard<std::mutex> writing(m_writeMutex);
    WriteTaken(Merged(last));
    m_unwritten.clear();
    m_unwrittenCount = 0;
}

void RunStateWriter::Record(const QString& planUuid, RunStateUpdate change) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_taking) {
        return;
    }
    if (m_changes.empty()) {
        m_firstChange = std::chrono::steady_clock::now();
        m_wake.notify_all();
    }
    // A run, its schedule and its occurrence come one after the other for the
    // same plan; folding them here keeps a poll's batch at one change a plan.
    if (!m_changes.empty() && m_changes.back().planUuid == planUuid) {
        m_changes.back().update.Apply(change);
        return;
    }
    m_changes.emplace_back(planUuid, std::move(change));
}

void RunStateWriter::Hold() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_holds;
}

void RunStateWriter::Release() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_holds > 0 && --m_holds == 0) {
        m_wake.notify_all();
    }
}

bool RunStateWriter::Held() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_holds > 0;
}

quint64 RunStateWriter::UnwrittenChanges() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_unwrittenCount + static_cast<quint64>(m_changes.size());
}

// Waits for a batch's first change, then for kBatchMSecs or Stop, whichever
// comes first, and writes the batch under way.
void RunStateWriter::Run() {
    SignalStack stack;
    ::pthread_setname_np(::pthread_self(), "state-writer");
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        if (!m_taking || m_changes.empty() || m_holds > 0) {
            m_wake.wait(lock);
            continue;
        }
        const auto due = m_firstChange + std::chrono::milliseconds(kBatchMSecs);
        if (m_wake.wait_until(lock, due, [this] { return m_stopping; })) {
            return;
        }
        const size_t rows = m_changes.size();
        lock.unlock();
        Flush();
        // A batch as large as a start-up's leaves its pages resident for good
        // unless the heap is asked to give them back.
        if (rows >= kTrimRows) {
            malloc_trim(0);
        }
        lock.lock();
    }
}

bool RunStateWriter::Flush() {
    std::lock_guard<std::mutex> writing(m_writeMutex);
    return WriteTaken(Merged(TakeChanges()));
}

std::vector<RunStateWriter::Change> RunStateWriter::TakeChanges() {
    std::vector<Change> changes;
    std::lock_guard<std::mutex> lock(m_mutex);
    changes.swap(m_changes);
    return changes;
}

RunStateBatch RunStateWriter::Merged(const std::vector<Change>& changes) {
    RunStateBatch batch;
    batch.reserve(static_cast<int>(changes.size()));
    for (const Change& change : changes) {
        RunStateUpdate& update = batch[change.planUuid];
        update.Apply(change.update);
        // The recorder leaves the text of a computed start to this thread.
        if (update.schedule) {
            update.schedule->MakeNextStartText();
        }
    }
    return batch;
}

// The caller holds m_writeMutex.
//
// A batch that could not be written goes under the next one, so that a
// passing failure (a full disk, another program writing the file) loses no
// run. It is tried again with the next batch, Flush or Stop, never in a loop
// of its own.
bool RunStateWriter::WriteTaken(const RunStateBatch& taken) {
    Observe(taken);
    if ((taken.isEmpty() && m_unwritten.isEmpty()) || !m_tables.Attached()) {
        return m_lastWriteOk;
    }
    RunStateBatch batch = taken;
    if (!m_unwritten.isEmpty()) {
        batch.swap(m_unwritten);
        for (auto it = taken.constBegin(); it != taken.constEnd(); ++it) {
            batch[it.key()].Apply(it.value());
        }
    }
    m_lastWriteOk = m_tables.Write(batch);
    if (!m_lastWriteOk) {
        m_unwritten.swap(batch);
        m_unwrittenCount = static_cast<quint64>(m_unwritten.size());
        return false;
    }
    m_unwrittenCount = 0;
    RefreshSummary(batch);
    return true;
}

// The earliest next start is followed from the batches; only when the plan
// that held it changes is the file asked again.
void RunStateWriter::RefreshSummary(const RunStateBatch& batch) {
    RunStateTables::Summary summary = LastSummary();
    bool rescan = false;
    bool changed = false;
    for (auto it = batch.constBegin(); it != batch.constEnd(); ++it) {
        const RunStateUpdate& u = it.value();
        if (it.key() == summary.nextPlan && (u.removeFirst || u.schedule)) {
            rescan = true;
        } else if (u.schedule && !u.schedule->nextStart.isEmpty() &&
                   (summary.nextStart.isEmpty() || u.schedule->nextStart < summary.nextStart)) {
            summary = RunStateTables::Summary{it.key(), u.schedule->nextStart};
            changed = true;
        }
    }
    if (rescan) {
        summary = m_tables.EarliestStart();
        changed = true;
    }
    if (changed) {
        Publish(summary);
        m_summaryChanged();
    }
}

RunStateTables::Summary RunStateWriter::LastSummary() const {
    std::lock_guard<std::mutex> lock(m_summaryMutex);
    return m_summary;
}

void RunStateWriter::Publish(const RunStateTables::Summary& summary) {
    std::lock_guard<std::mutex> lock(m_summaryMutex);
    m_summary = summary;
}

// Each batch is observed once, when it is taken, whether or not its write
// succeeds: a batch that failed is written again with the next, not counted
// again.
void RunStateWriter::Observe(const RunStateBatch& taken) {
    for (auto it = taken.constBegin(); it != taken.constEnd(); ++it) {
        const RunStateUpdate& u = it.value();
        if (u.removeFirst) {
            m_health.Remove(it.key());
        }
        if (u.run) {
            m_health.NoteRun(it.key(), u.triggerType, u.run->handedMSecs);
        }
        for (const RunHistory::Event& event : u.history) {
            if (!event.answer) {
                ObserveOccurrence(it.key(), event.occurrence);
            }
        }
        if (u.schedule) {
            m_health.NoteSchedule(it.key(), u.triggerType, u.schedule->nextStart, u.schedule->endFlag);
        }
        if (u.result) {
            m_health.NoteResult(it.key(), u.result->code, u.result->atMSecs);
            m_tally.NoteAnswer(u.result->code);
        }
    }
}

// Every start the history records is a run by its outcome, a missed one also
// by its reason; a plan's end or deletion is no run.
void RunStateWriter::ObserveOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    using Outcome = RunHistory::Outcome;
    if (occurrence.outcome < Outcome::OnTime || occurrence.outcome > Outcome::Moved) {
        return;
    }
    m_tally.NoteOutcome(occurrence.outcome);
    if (occurrence.outcome == Outcome::Missed || occurrence.outcome == Outcome::Merged) {
        m_tally.NoteMissed(occurrence.reason);
        m_health.NoteMissed(planUuid, occurrence.dueMSecs);
        return;
    }
    if (occurrence.handedMSecs >= 0) {
        m_tally.NoteLateness(occurrence.handedMSecs - occurrence.dueMSecs);
    }
}
