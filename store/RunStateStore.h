#pragma once

#include "RunHistory.h"
#include "store/RunTally.h"
#include "store/ScheduleHealth.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

struct sqlite3;
class TriggerObject;

// The service's own run state in data/state.db (SQLite, WAL), beside the plans
// database, which the service never writes: per plan the last run, the next
// start, the end flag and the agent's last answer to a run.
//
// Recording is cheap and may happen on any thread: it only merges the change
// into the batch in memory. The batch is written in one transaction on the
// store's own writer thread at most kBatchMSecs after its first change, so
// neither a single fire nor the application thread waits for the disk. A kill
// at any moment loses at most the batch in memory; SQLite's journal keeps the
// file itself whole.
class RunStateStore : public QObject {
    Q_OBJECT
public:
    static constexpr int kBatchMSecs = 100;
    static constexpr int kSchemaVersion = 2;
    // Rows of a batch after whose write the heap returns its free pages.
    static constexpr size_t kTrimRows = 10000;

    // What the schedule computation of a plan needs to go on where it was.
    struct Schedule {
        QString nextStart;         // "yyyy-MM-dd hh:mm:ss"; empty when none
        qint64 nextStartMSecs = 0; // the instant the text names; 0 when none
        int nextStartOffsetSecs = 0;
        quint64 endFlag = 0;
        quint64 repeatCount = 0;
        quint64 startOffsetSecs = 0;
        quint64 firstSeekDone = 0;
        QString filledStart; // what an empty start text was filled with
        // Of the definition the rest was computed from; 0 when nothing of the
        // computation was kept (an event trigger, a row of an older file).
        quint64 fingerprint = 0;
    };

    // What the state file knew of a plan when the service started.
    struct StoredRun {
        QString lastDue;   // "yyyy-MM-dd hh:mm:ss"; empty when the plan never ran
        QString nextStart; // empty when none was known
        Schedule schedule = {};
        // Set when the plan goes on from this row instead of a first
        // computation.
        bool resumed = false;
    };

    // The plan that runs next, for the line the service shows to systemd.
    struct Summary {
        QString nextPlan;
        QString nextStart;
    };

    // The changes of one plan waiting to be written.
    struct Update;

    explicit RunStateStore(QObject* parent = nullptr);
    ~RunStateStore() override;

    // Opens the state file, or starts a fresh one when it is missing, locked or
    // damaged (the damaged file is renamed aside, never deleted), and forgets
    // the rows of plans that are not in `livePlans`. False only when no state
    // file can be used at all; the service then runs without one.
    bool Open(const QString& path, const QSet<QString>& livePlans);
    // Writes what is pending, stops recording and the writer thread, and
    // closes the file. Must run on the thread that called Open.
    void Close();
    QHash<QString, StoredRun> TakeStoredRuns();
    // Gives each registered plan whose definition is the one its row was
    // computed from the row's progress and next start, so that it goes on
    // without a first computation; a plan whose row is missing, damaged or of
    // another definition is left for its first computation. Returns how many
    // plans resume. Call under the registry lock, before the fires start.
    int Resume(const QHash<QString, TriggerObject*>& registry);
    // Writes the pending batch now, on the calling thread, after any batch the
    // writer thread has under way; false when the last write failed.
    bool Flush();
    // Safe from any thread.
    Summary LastSummary() const;
    // How the plans fare and what their runs came to, followed from every
    // batch as it is taken; safe from any thread.
    const ScheduleHealth& Health() const { return m_health; }
    const RunTally& Tally() const { return m_tally; }
    // When the file was last written, ms since the epoch; 0 when unknown.
    qint64 WrittenAtMSecs() const { return m_writtenAtMSecs; }
    // Changes recorded but not yet in the file; safe from any thread.
    quint64 UnwrittenChanges() const;

    // What the run state keeps of a trigger as it was just computed.
    static Schedule ScheduleOf(const TriggerObject& object);

    // The recorders; harmless while no store is open.
    static void RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                          qint64 handedMSecs);
    static void RecordSchedule(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                               quint64 endFlag);
    static void RecordSchedule(const QString& planUuid, quint64 triggerType, const Schedule& schedule);
    static void RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs);
    static void RecordRemoval(const QString& planUuid);
    // Use RunHistory::Record, which also logs what users must hear of.
    static void RecordOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence);
    // While held, the batch grows instead of being written; released, it is
    // written at once if its time has come. A poll pass holds it, and so does
    // the start of all fires, so that their changes go in one
    // transaction: a start-up of a million plans written every 100 ms took
    // hundreds of transactions, each rewriting pages all over the file.
    static void HoldBatch(bool held);
    static bool BatchHeld();

Q_SIGNALS:
    // After a write that may have changed the summary; usually emitted on the
    // writer thread, so receivers in other threads get it queued. It is
    // emitted under the write lock: a receiver called directly must not Flush.
    void summaryChanged();

private:
    bool OpenFile(QString& problem);
    bool EnsureSchema(QString& problem);
    bool Migrate(int version, QString& problem);
    QString SetAside();
    void CloseConnection();
    bool LoadAndPrune(const QSet<QString>& livePlans);
    void RunWriter();
    bool WriteTaken(const QHash<QString, Update>& batch);
    bool WriteBatch(const QHash<QString, Update>& batch);
    bool WriteHistory(const QString& planUuid, const Update& u);
    void RefreshSummary(const QHash<QString, Update>& batch);
    void LoadHealth();
    void Observe(const QHash<QString, Update>& taken);
    void ObserveOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence);
    void Publish(const Summary& summary);
    static void Merge(const QString& planUuid, const Update& change);
    static QHash<QString, Update> Merged(const std::vector<std::pair<QString, Update>>& changes);

    QString m_path;
    QString m_connectionName;
    bool m_open = false;
    // The connection's own SQLite handle; see Open for which thread uses it.
    sqlite3* m_handle = nullptr;
    // Written inside the same transactions, by whoever holds m_writeMutex.
    RunHistory m_history;

    std::thread m_writer;
    // Guarded by the lock of the pending batch, which the writer waits on.
    bool m_stopping = false;
    std::condition_variable m_wake;

    // Held for each write, by whichever thread writes: batches reach the file
    // in the order they were taken.
    std::mutex m_writeMutex;
    bool m_lastWriteOk = true;
    QHash<QString, Update> m_unwritten;
    std::atomic<quint64> m_unwrittenCount{0};
    std::atomic<qint64> m_writtenAtMSecs{0};
    bool m_reportedWriteFailure = false;

    mutable std::mutex m_summaryMutex;
    Summary m_summary;
    QHash<QString, StoredRun> m_storedRuns;
    ScheduleHealth m_health;
    RunTally m_tally;
};
