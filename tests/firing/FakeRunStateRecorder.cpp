#include "FakeRunStateRecorder.h"

void FakeRunStateRecorder::RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                                     qint64 handedMSecs) {
    Add(QString("run %1 %2 %3 %4").arg(planUuid).arg(triggerType).arg(due).arg(handedMSecs));
}

void FakeRunStateRecorder::RecordSchedule(const QString& planUuid, quint64 triggerType,
                                          const Schedule& schedule) {
    Add(QString("schedule %1 %2 [%3] %4")
            .arg(planUuid)
            .arg(triggerType)
            .arg(schedule.nextStart)
            .arg(schedule.endFlag));
}

void FakeRunStateRecorder::RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs) {
    Add(QString("result %1 %2 %3").arg(planUuid).arg(result).arg(atMSecs));
}

void FakeRunStateRecorder::RecordRemoval(const QString& planUuid) {
    Add(QString("removal %1").arg(planUuid));
}

void FakeRunStateRecorder::KeepOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    Add(QString("occurrence %1 %2").arg(planUuid, RunHistory::OutcomeName(occurrence.outcome)));
}

QStringList FakeRunStateRecorder::Recorded() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_recorded;
}

bool FakeRunStateRecorder::Held() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_holds > 0;
}

void FakeRunStateRecorder::HoldBatch() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_holds;
}

void FakeRunStateRecorder::ReleaseBatch() {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_holds;
}

void FakeRunStateRecorder::Add(const QString& line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_recorded << line;
}
