#pragma once

#include "QtPrinters.h"

#include "triggers/TriggerObject.h"

#include <QDateTime>

// Short-hand for trigger definitions in test tables.
struct TriggerSpec {
    quint64 type = 0;
    const char* start = "";
    const char* end = "";
    quint64 interval = 0;
    quint64 duration = 0;
    const char* weekDays = "";
    const char* months = "";
    const char* monthDays = "";
    quint64 dayLast = 0;
};

inline TriggerAttribute MakeAttribute(const TriggerSpec& spec) {
    TriggerAttribute attribute;
    attribute.setTriggerType(spec.type);
    attribute.setStartTime(spec.start);
    attribute.setEndTime(spec.end);
    attribute.setInterval(spec.interval);
    attribute.setDuration(spec.duration);
    attribute.setWeekDays(spec.weekDays);
    attribute.setWhichMoths(spec.months);
    attribute.setMonthDays(spec.monthDays);
    attribute.setDayLastFlag(spec.dayLast);
    return attribute;
}

inline TriggerObject MakeTrigger(const QString& planUuid, const TriggerSpec& spec) {
    TriggerObject object;
    object.setPlanUuid(planUuid);
    object.setTriggerAttribute(MakeAttribute(spec));
    return object;
}

inline QDateTime At(const char* text) {
    QDateTime t = QDateTime::fromString(text, "yyyy-MM-dd hh:mm:ss.zzz");
    return t.isValid() ? t : QDateTime::fromString(text, "yyyy-MM-dd hh:mm:ss");
}
