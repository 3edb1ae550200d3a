#pragma once

#include "RunStateFile.h"
#include "RunStateRecorder.h"
#include "RunStateTables.h"
#include "RunStateWriter.h"
#include "store/RunTally.h"
#include "store/ScheduleHealth.h"

#include <QHash>
#include <QObject>
#include <QString>

class TriggerObject;

// The service's own run state in data/state.db (SQLite, WAL), beside the plans
// database, which the service never writes: per plan the last run, the next
// start, the end flag and the agent's last answer to a run, and the history of
// its starts.
//
// The file is opened, checked and read by RunStateFile; what is recorded goes
// through RunStateWriter's batches into RunStateTables.
class RunStateStore : public QObject, public RunStateRecorder {
    Q_OBJECT
public:
    using StoredRun = RunStateFile::StoredRun;
    using IsLivePlan = RunStateFile::IsLivePlan;
    using Summary = RunStateTables::Summary;

    explicit RunStateStore(QObject* parent = nullptr);
    ~RunStateStore() override;

    // Opens the state file, or starts a fresh one when it is missing, locked or
    // damaged (the damaged file is renamed aside, never deleted), and forgets
    // the rows of plans for which `isLive` is not true. False only when no state
    // file can be used at all; the service then runs without one.
    bool Open(const QString& path, const IsLivePlan& isLive);
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
    const ScheduleHealth& Health() const { return m_writer.Health(); }
    const RunTally& Tally() const { return m_writer.Tally(); }
    // When the file was last written, ms since the epoch; 0 when unknown.
    qint64 WrittenAtMSecs() const { return m_tables.WrittenAtMSecs(); }
    // Changes recorded but not yet in the file; safe from any thread.
    quint64 UnwrittenChanges() const;
    // Whether a RunStateBatchHold lasts; safe from any thread.
    bool BatchHeld() const;

    using RunStateRecorder::RecordSchedule;
    void RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                   qint64 handedMSecs) override;
    void RecordSchedule(const QString& planUuid, quint64 triggerType, const Schedule& schedule) override;
    void RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs) override;
    void RecordRemoval(const QString& planUuid) override;

Q_SIGNALS:
    // After a write that may have changed the summary; usually emitted on the
    // writer thread, so receivers in other threads get it queued. It is
    // emitted under the write lock: a receiver called directly must not Flush.
    void summaryChanged();

protected:
    void KeepOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) override;

private:
    void HoldBatch() override;
    void ReleaseBatch() override;

    RunStateFile m_file;
    RunStateTables m_tables;
    RunStateWriter m_writer;
    QHash<QString, StoredRun> m_storedRuns;
};
