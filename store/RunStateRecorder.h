#pragma once

#include "RunHistory.h"

#include <QString>

class TriggerObject;

// What the parts that fire, link and store plans tell the run state. Recording
// is cheap, may happen on any thread, and is harmless while no state file is
// open.
class RunStateRecorder {
public:
    // What the schedule computation of a plan needs to go on where it was.
    struct Schedule {
        // "yyyy-MM-dd hh:mm:ss"; empty when none, or until the writer makes it
        // from the instant.
        QString nextStart;
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

        // Makes the text of a computed start from its instant, when the
        // recorder left it out.
        void MakeNextStartText();
    };

    RunStateRecorder() = default;
    virtual ~RunStateRecorder() = default;
    RunStateRecorder(const RunStateRecorder&) = delete;
    RunStateRecorder& operator=(const RunStateRecorder&) = delete;

    // What the run state keeps of a trigger as it was just computed.
    static Schedule ScheduleOf(const TriggerObject& object);

    virtual void RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                           qint64 handedMSecs) = 0;
    virtual void RecordSchedule(const QString& planUuid, quint64 triggerType, const Schedule& schedule) = 0;
    void RecordSchedule(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                        quint64 endFlag);
    virtual void RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs) = 0;
    virtual void RecordRemoval(const QString& planUuid) = 0;
    // Into the history, and at warn level into the log what users must hear
    // of: a missed or merged start.
    void RecordOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence);
    // An occurrence of this moment: an event firing (handed), a plan's end or
    // deletion (not).
    void RecordNow(const QString& planUuid, RunHistory::Outcome outcome, bool handed);

protected:
    virtual void KeepOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) = 0;

private:
    // Through RunStateBatchHold only, so that every hold is released.
    friend class RunStateBatchHold;
    virtual void HoldBatch() = 0;
    virtual void ReleaseBatch() = 0;
};
