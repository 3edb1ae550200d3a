#include "RunStateRecorder.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

void RunStateRecorder::Schedule::MakeNextStartText() {
    if (nextStart.isEmpty() && nextStartMSecs != 0) {
        nextStart = LocalTime::FormatAt(nextStartMSecs, nextStartOffsetSecs);
    }
}

RunStateRecorder::Schedule RunStateRecorder::ScheduleOf(const TriggerObject& object) {
    Schedule schedule;
    schedule.endFlag = object.getTriggerAttribute().getTriggerEndFlag();
    if (schedule.endFlag == 0) {
        schedule.nextStart = object.getNextStartText();
        schedule.nextStartMSecs = object.getNextStartMSecs();
        schedule.nextStartOffsetSecs = object.getNextStartOffsetSecs();
    }
    schedule.repeatCount = object.getRepeatCount();
    schedule.startOffsetSecs = object.getStartOffsetSecs();
    schedule.firstSeekDone = object.getFirstSeekDone();
    schedule.filledStart = object.getFilledStartTime();
    schedule.fingerprint = object.getDefinitionFingerprint();
    return schedule;
}

void RunStateRecorder::RecordSchedule(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                                      quint64 endFlag) {
    Schedule schedule;
    schedule.nextStart = nextStart;
    schedule.endFlag = endFlag;
    RecordSchedule(planUuid, triggerType, schedule);
}

void RunStateRecorder::RecordOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    using Outcome = RunHistory::Outcome;
    KeepOccurrence(planUuid, occurrence);
    if (occurrence.outcome != Outcome::Missed && occurrence.outcome != Outcome::Merged) {
        return;
    }
    const QString plan = LogText::Outside(planUuid);
    const QString due = LocalTime::Format(QDateTime::fromMSecsSinceEpoch(occurrence.dueMSecs));
    const QString reason = RunHistory::ReasonName(occurrence.reason);
    if (occurrence.outcome == Outcome::Missed) {
        Logger::Warn(QString("Plan[%1] start [%2] was missed: %3.").arg(plan, due, reason));
    } else {
        Logger::Warn(QString("Plan[%1] start [%2] was merged into a later run: %3.").arg(plan, due, reason));
    }
}

void RunStateRecorder::RecordNow(const QString& planUuid, RunHistory::Outcome outcome, bool handed) {
    const qint64 now = Clock::nowMSecsSinceEpoch();
    RecordOccurrence(planUuid,
                     RunHistory::Occurrence{now, handed ? now : -1, outcome, RunHistory::Reason::None, 0, 0});
}
