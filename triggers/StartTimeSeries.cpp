#include "StartTimeSeries.h"

#include "CalendarSchedule.h"
#include "FireState.h"
#include "LocalTime.h"
#include "TriggerObject.h"
#include "WallTime.h"

QString StartTimeSeries::Entry::Text() const {
    if (state == FireState::kScheduled) {
        return LocalTime::FormatAt(msecs, offsetSecs);
    }
    return state == FireState::kFinished ? "finished" : "error";
}

StartTimeSeries::Entry StartTimeSeries::StartAt(qint64 msecs, bool movedByGap) {
    Entry entry;
    entry.state = FireState::kScheduled;
    entry.msecs = msecs;
    entry.offsetSecs = WallTime::OffsetAt(msecs);
    entry.movedByGap = movedByGap;
    WallTime::Reading reading = WallTime::Reading::Once;
    WallTime::InstantOf(msecs + entry.offsetSecs * 1000LL, &reading);
    entry.inRepeatedHour = reading == WallTime::Reading::Twice;
    return entry;
}

QVector<StartTimeSeries::Entry> StartTimeSeries::Walk(TriggerObject& object, qint64 now, quint64 count,
                                                      bool poll, bool afterRun) {
    qint64 base = poll ? CalendarSchedule::MinuteStart(now) : now;
    QVector<Entry> entries;
    for (quint64 i = 0; i < count; ++i) {
        const CalendarRule& rule = object.getCalendarRule();
        const ScheduleProgress progress = ScheduleProgress::Of(object);
        const bool ran = afterRun || i > 0;
        const ScheduleResult result = poll ? CalendarSchedule::ComputePolled(rule, progress, base, now, ran)
                                           : CalendarSchedule::Compute(rule, progress, base, now);
        result.ApplyTo(object);
        if (result.state != FireState::kScheduled) {
            Entry end;
            end.state = result.state;
            entries << end;
            break;
        }
        entries << StartAt(result.nextMSecs, result.movedByGap);
        base = poll ? CalendarSchedule::MinuteStart(result.nextMSecs) : result.nextMSecs;
    }
    return entries;
}

QStringList StartTimeSeries::Compute(TriggerObject& object, qint64 now, quint64 count, bool poll) {
    QStringList texts;
    for (const Entry& entry : Walk(object, now, count, poll, false)) {
        texts << entry.Text();
    }
    return texts;
}
