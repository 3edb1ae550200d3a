#pragma once

#include "RunStateTables.h"
#include "RunStateUpdate.h"
#include "RunTally.h"
#include "ScheduleHealth.h"

#include <QString>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

// The batch of changes not yet written and the thread that writes it.
//
// Recording only merges the change into the batch in memory, on any thread.
// The batch is written in one transaction on the writer's own thread at most
// kBatchMSecs after its first change, so neither a single fire nor the
// application thread waits for the disk. A kill at any moment loses at most
// the batch in memory; SQLite's journal keeps the file itself whole.
class RunStateWriter {
public:
    static constexpr int kBatchMSecs = 100;
    // Rows of a batch after whose write the heap returns its free pages.
    static constexpr size_t kTrimRows = 10000;

    // `summaryChanged` is called after a write that may have changed the
    // summary, under the write lock, usually on the writer thread.
    RunStateWriter(RunStateTables& tables, std::function<void()> summaryChanged);
    ~RunStateWriter();
    RunStateWriter(const RunStateWriter&) = delete;
    RunStateWriter& operator=(const RunStateWriter&) = delete;

    // Takes changes from now on and starts the writer thread; the tables are
    // attached.
    void Start(const RunStateTables::Summary& summary);
    // Stops taking changes, ends the thread and writes what was taken.
    void Stop();
    void Record(const QString& planUuid, RunStateUpdate change);
    void Hold();
    void Release();
    bool Held() const;
    // Writes the pending batch now, on the calling thread, after any batch the
    // writer thread has under way; false when the last write failed.
    bool Flush();

    // Safe from any thread.
    RunStateTables::Summary LastSummary() const;
    quint64 UnwrittenChanges() const;
    const ScheduleHealth& Health() const { return m_health; }
    const RunTally& Tally() const { return m_tally; }

private:
    // The changes in the order they were recorded, merged per plan only when
    // they are written. Kept in one block rather than a node per plan: a
    // start-up holds a change for every plan until its pass ends, and nodes
    // freed among the strings made meanwhile would leave the heap too holed to
    // give back.
    //
    // Moved, not copied, when the block grows: the history (a QVarLengthArray,
    // nearly always empty) has no move of its own and is copied, which would
    // otherwise make the vector copy every change, strings and all.
    struct Change {
        Change(const QString& plan, RunStateUpdate change) : planUuid(plan), update(std::move(change)) {}
        Change(const Change&) = default;
        Change(Change&&) noexcept = default;
        Change& operator=(const Change&) = default;
        Change& operator=(Change&&) noexcept = default;

        QString planUuid;
        RunStateUpdate update;
    };
    static_assert(std::is_nothrow_move_constructible<Change>::value, "a growing block must move its changes");

    void Run();
    std::vector<Change> TakeChanges();
    bool WriteTaken(const RunStateBatch& taken);
    void RefreshSummary(const RunStateBatch& batch);
    void Publish(const RunStateTables::Summary& summary);
    void Observe(const RunStateBatch& taken);
    void ObserveOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence);
    static RunStateBatch Merged(const std::vector<Change>& changes);

    RunStateTables& m_tables;
    std::function<void()> m_summaryChanged;

    // Guards the pending changes and the state of the thread, which waits on
    // it.
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<Change> m_changes;
    std::chrono::steady_clock::time_point m_firstChange;
    bool m_taking = false;
    bool m_stopping = false;
    int m_holds = 0;
    std::thread m_thread;

    // Held for each write, by whichever thread writes: batches reach the file
    // in the order they were taken.
    std::mutex m_writeMutex;
    bool m_lastWriteOk = true;
    RunStateBatch m_unwritten;
    std::atomic<quint64> m_unwrittenCount{0};

    mutable std::mutex m_summaryMutex;
    RunStateTables::Summary m_summary;
    ScheduleHealth m_health;
    RunTally m_tally;
};
