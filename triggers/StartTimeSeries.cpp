#include "StartTimeSeries.h"

#include "CalendarSchedule.h"
#include "FireState.h"
#include "LocalTime.h"
#include "TriggerObject.h"

QStringList StartTimeSeries::Compute(TriggerObject& object, const QDateTime& now, quint64 count, bool poll) {
    QDateTime base = poll ? CalendarSchedule::MinuteStart(now) : now;
    QStringList entries;
    for (quint64 i = 0; i < count; ++i) {
        const TriggerAttribute& attribute = object.getObjectTriggerAttribute();
        const ScheduleProgress progress = ScheduleProgress::Of(object);
        const ScheduleResult result =
            poll ? CalendarSchedule::ComputePolled(attribute, progress, base, now, i > 0)
                 : CalendarSchedule::Compute(attribute, progress, base, now);
        result.ApplyTo(object);
        if (result.state != FireState::kScheduled) {
            entries << (result.state == FireState::kFinished ? "finished" : "error");
            break;
        }
        entries << LocalTime::Format(result.next);
        base = result.next;
    }
    return entries;
}
