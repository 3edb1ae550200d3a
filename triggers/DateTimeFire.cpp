#include "DateTimeFire.h"

#include "CalendarSchedule.h"
#include "FireState.h"
#include "LocalTime.h"
#include "TriggerObject.h"
#include "framework/WireFormat.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"

DateTimeFire::DateTimeFire() {
    setFireKind(FireKinds::kDateTime);
}

quint64 DateTimeFire::Start() {
    setFireState(FireState::kError);
    return getFireState();
}

void DateTimeFire::Stop() {}

void DateTimeFire::onkillDateTimer() {}

quint64 DateTimeFire::SeekNextStartTime(const QDateTime& now, QDateTime& next) {
    qint64 nextMSecs = 0;
    const quint64 state = SeekNextStartTimeAt(now.toMSecsSinceEpoch(), nextMSecs);
    if (state == FireState::kScheduled) {
        next = LocalTime::WithOffset(nextMSecs);
    }
    return state;
}

quint64 DateTimeFire::SeekNextStartTimeAt(qint64 nowMSecs, qint64& nextMSecs) {
    return Seek(
        [nowMSecs](const CalendarRule& rule, const ScheduleProgress& progress) {
            return CalendarSchedule::Compute(rule, progress, nowMSecs, Clock::nowMSecsSinceEpoch());
        },
        nextMSecs);
}

quint64 DateTimeFire::SeekNextPolledStartTimeAt(qint64 minuteStartMSecs, bool afterRun, qint64& nextMSecs) {
    return Seek(
        [minuteStartMSecs, afterRun](const CalendarRule& rule, const ScheduleProgress& progress) {
            return CalendarSchedule::ComputePolled(rule, progress, minuteStartMSecs,
                                                   Clock::nowMSecsSinceEpoch(), afterRun);
        },
        nextMSecs);
}

quint64 DateTimeFire::SeekLateStartTimeAt(qint64 nowMSecs, qint64& nextMSecs) {
    return Seek(
        [nowMSecs](const CalendarRule& rule, const ScheduleProgress& progress) {
            return CalendarSchedule::ComputeLate(rule, progress, nowMSecs, Clock::nowMSecsSinceEpoch());
        },
        nextMSecs);
}

template <typename Computation> quint64 DateTimeFire::Seek(Computation compute, qint64& nextMSecs) {
    TriggerObject* object = GetTriggerObject();
    if (object == nullptr) {
        Logger::Error("TriggerObject pointer is NULL in the DateTimeFire.");
        setFireState(FireState::kError);
        return getFireState();
    }
    const ScheduleResult result = compute(object->getCalendarRule(), ScheduleProgress::Of(*object));
    result.ApplyTo(*object);
    setFireState(result.state);
    if (getFireState() == FireState::kScheduled) {
        Publish(result, nextMSecs);
    }
    return getFireState();
}

void DateTimeFire::Publish(const ScheduleResult& result, qint64& nextMSecs) {
    TriggerObject* object = GetTriggerObject();
    nextMSecs = result.nextMSecs;
    if (!Send(object, CommandTypes::kTriggerInfo)) {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] request update trigger next start time info error.")
                .arg(LogText::Outside(object->getPlanUuid())));
    }
    Logger::Info(
        QStringLiteral("The TimerFire of scheduler[%1] next start time [%2] in the SeekNextStartTime.")
            .arg(LogText::Outside(object->getPlanUuid()), object->getNextStartTime()));
}
