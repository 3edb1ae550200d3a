#include "DateTimeFire.h"

#include "CalendarSchedule.h"
#include "FireState.h"
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
    return Seek(
        [&now](const CalendarRule& rule, const ScheduleProgress& progress) {
            return CalendarSchedule::Compute(rule, progress, now.toMSecsSinceEpoch(),
                                             Clock::nowMSecsSinceEpoch());
        },
        next);
}

quint64 DateTimeFire::SeekNextPolledStartTime(const QDateTime& minuteStart, bool afterRun, QDateTime& next) {
    return Seek(
        [&minuteStart, afterRun](const CalendarRule& rule, const ScheduleProgress& progress) {
            return CalendarSchedule::ComputePolled(rule, progress, minuteStart.toMSecsSinceEpoch(),
                                                   Clock::nowMSecsSinceEpoch(), afterRun);
        },
        next);
}

quint64 DateTimeFire::SeekLateStartTime(const QDateTime& now, QDateTime& next) {
    return Seek(
        [&now](const CalendarRule& rule, const ScheduleProgress& progress) {
            return CalendarSchedule::ComputeLate(rule, progress, now.toMSecsSinceEpoch(),
                                                 Clock::nowMSecsSinceEpoch());
        },
        next);
}

template <typename Computation> quint64 DateTimeFire::Seek(Computation compute, QDateTime& next) {
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
        Publish(result, next);
    }
    return getFireState();
}

void DateTimeFire::Publish(const ScheduleResult& result, QDateTime& next) {
    TriggerObject* object = GetTriggerObject();
    next = result.Next();
    if (!Send(object, CommandTypes::kTriggerInfo)) {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] request update trigger next start time info error.")
                .arg(LogText::Outside(object->getPlanUuid())));
    }
    Logger::Info(QString("The TimerFire of scheduler[%1] next start time [%2] in the SeekNextStartTime.")
                     .arg(LogText::Outside(object->getPlanUuid()), object->getNextStartTime()));
}
