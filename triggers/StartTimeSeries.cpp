#include "StartTimeSeries.h"

#include "DateTimeFire.h"
#include "FireState.h"
#include "LocalTime.h"

QDateTime StartTimeSeries::MinuteStart(const QDateTime& t) {
    QDateTime start = t;
    start.setTime(QTime(t.time().hour(), t.time().minute()));
    return start;
}

QStringList StartTimeSeries::Compute(TriggerObject& object, const QDateTime& now, quint64 count, bool poll) {
    DateTimeFire fire;
    fire.SetTriggerObject(&object);
    QDateTime base = poll ? MinuteStart(now) : now;
    QStringList entries;
    for (quint64 i = 0; i < count; ++i) {
        QDateTime next;
        const quint64 state = fire.SeekNextStartTime(base, next);
        if (state != FireState::kScheduled) {
            entries << (state == FireState::kFinished ? "finished" : "error");
            break;
        }
        entries << LocalTime::Format(next);
        base = poll ? MinuteStart(next) : next;
    }
    return entries;
}
