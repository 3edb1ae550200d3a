#pragma once

#include "store/RunStateRecorder.h"

#include <QStringList>

#include <mutex>

// Keeps, as one line each, what it was asked to record, and counts the holds
// of its batch.
class FakeRunStateRecorder : public RunStateRecorder {
public:
    void RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                   qint64 handedMSecs) override;
    void RecordSchedule(const QString& planUuid, quint64 triggerType, const Schedule& schedule) override;
    using RunStateRecorder::RecordSchedule;
    void RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs) override;
    void RecordRemoval(const QString& planUuid) override;

    QStringList Recorded() const;
    bool Held() const;

protected:
    void KeepOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) override;

private:
    void HoldBatch() override;
    void ReleaseBatch() override;
    void Add(const QString& line);

    mutable std::mutex m_mutex;
    QStringList m_recorded;
    int m_holds = 0;
};
