#include "RunStateStore.h"

#include "framework/ConfigReader.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

namespace {
RunStateTables::Summary EarliestOf(const QHash<QString, RunStateStore::StoredRun>& runs) {
    RunStateTables::Summary summary;
    for (auto it = runs.constBegin(); it != runs.constEnd(); ++it) {
        const QString& next = it->nextStart;
        if (!next.isEmpty() && (summary.nextStart.isEmpty() || next < summary.nextStart ||
                                (next == summary.nextStart && it.key() < summary.nextPlan))) {
            summary = RunStateTables::Summary{it.key(), next};
        }
    }
    return summary;
}

// A row the service wrote itself after a computation: a later start, or the
// end. Anything else (a row of an older file, one changed by hand) is damaged.
bool Resumable(const RunStateRecorder::Schedule& kept, const TriggerObject& object) {
    if (kept.fingerprint == 0 || kept.fingerprint != object.getDefinitionFingerprint() ||
        kept.firstSeekDone != 1) {
        return false;
    }
    if (kept.endFlag != 0) {
        return true;
    }
    const QDateTime next = LocalTime::Parse(kept.nextStart);
    return kept.nextStartMSecs > 0 && next.isValid() &&
           qAbs(next.toMSecsSinceEpoch() - kept.nextStartMSecs) <= 86400000;
}

void ResumeObject(const RunStateRecorder::Schedule& kept, TriggerObject& object) {
    TriggerAttribute& attribute = object.getObjectTriggerAttribute();
    if (attribute.getStartTime().isEmpty() && !kept.filledStart.isEmpty()) {
        attribute.setStartTime(kept.filledStart);
        object.setFilledStartTime(kept.filledStart);
    }
    attribute.setTriggerEndFlag(kept.endFlag);
    object.setFirstSeekDone(kept.firstSeekDone);
    object.setRepeatCount(kept.repeatCount);
    object.setStartOffsetSecs(kept.startOffsetSecs);
    if (kept.endFlag == 0) {
        object.setNextStart(kept.nextStart, kept.nextStartMSecs, kept.nextStartOffsetSecs);
    }
}
} // namespace

RunStateStore::RunStateStore(QObject* parent)
    : QObject(parent), m_writer(m_tables, [this] { Q_EMIT summaryChanged(); }) {}

RunStateStore::~RunStateStore() {
    Close();
}

bool RunStateStore::Open(const QString& path, const IsLivePlan& isLive) {
    Close();
    if (!m_file.Open(path)) {
        return false;
    }
    m_storedRuns = m_file.LoadAndPrune(isLive);
    m_tables.Attach(m_file.Handle(), path,
                    {ConfigReader::getHistoryKeepPerPlan(), ConfigReader::getHistoryKeepDays()});
    m_writer.Start(EarliestOf(m_storedRuns));
    return true;
}

void RunStateStore::Close() {
    m_writer.Stop();
    m_tables.Detach();
    m_file.Close();
}

QHash<QString, RunStateStore::StoredRun> RunStateStore::TakeStoredRuns() {
    QHash<QString, StoredRun> runs;
    runs.swap(m_storedRuns);
    return runs;
}

int RunStateStore::Resume(const QHash<QString, TriggerObject*>& registry) {
    int resumed = 0;
    for (auto it = m_storedRuns.begin(); it != m_storedRuns.end(); ++it) {
        TriggerObject* object = registry.value(it.key(), nullptr);
        if (object == nullptr || !Resumable(it->schedule, *object)) {
            continue;
        }
        ResumeObject(it->schedule, *object);
        it->resumed = true;
        ++resumed;
    }
    return resumed;
}

bool RunStateStore::Flush() {
    return m_writer.Flush();
}

RunStateStore::Summary RunStateStore::LastSummary() const {
    return m_writer.LastSummary();
}

quint64 RunStateStore::UnwrittenChanges() const {
    return m_writer.UnwrittenChanges();
}

bool RunStateStore::BatchHeld() const {
    return m_writer.Held();
}

void RunStateStore::RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                              qint64 handedMSecs) {
    m_writer.Record(planUuid,
                    RunStateUpdate{false, triggerType, RunStateUpdate::Run{due, handedMSecs}, {}, {}, {}});
}

void RunStateStore::RecordSchedule(const QString& planUuid, quint64 triggerType, const Schedule& schedule) {
    m_writer.Record(planUuid, RunStateUpdate{false, triggerType, {}, schedule, {}, {}});
}

void RunStateStore::RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs) {
    m_writer.Record(planUuid, RunStateUpdate{false,
                                             0,
                                             {},
                                             {},
                                             RunStateUpdate::Result{result, atMSecs},
                                             {RunHistory::Event{{}, RunHistory::Answer{result, atMSecs}}}});
}

void RunStateStore::RecordRemoval(const QString& planUuid) {
    m_writer.Record(planUuid, RunStateUpdate{true, 0, {}, {}, {}, {}});
}

void RunStateStore::KeepOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    m_writer.Record(planUuid, RunStateUpdate{false, 0, {}, {}, {}, {RunHistory::Event{occurrence, {}}}});
}

void RunStateStore::HoldBatch() {
    m_writer.Hold();
}

void RunStateStore::ReleaseBatch() {
    m_writer.Release();
}
