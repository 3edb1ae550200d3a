#pragma once

#include "QtPrinters.h"

#include "triggers/TriggerObject.h"

#include <QDataStream>
#include <QDateTime>

// Short-hand for trigger definitions in test tables.
struct TriggerDefinition {
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

inline TriggerAttribute MakeAttribute(const TriggerDefinition& definition) {
    TriggerAttribute attribute;
    attribute.setTriggerType(definition.type);
    attribute.setStartTime(definition.start);
    attribute.setEndTime(definition.end);
    attribute.setInterval(definition.interval);
    attribute.setDuration(definition.duration);
    attribute.setWeekDays(definition.weekDays);
    attribute.setWhichMoths(definition.months);
    attribute.setMonthDays(definition.monthDays);
    attribute.setDayLastFlag(definition.dayLast);
    return attribute;
}

inline TriggerObject MakeTrigger(const QString& planUuid, const TriggerDefinition& definition) {
    TriggerObject object;
    object.setPlanUuid(planUuid);
    object.setTriggerAttribute(MakeAttribute(definition));
    return object;
}

inline QDateTime At(const char* text) {
    QDateTime t = QDateTime::fromString(text, "yyyy-MM-dd hh:mm:ss.zzz");
    return t.isValid() ? t : QDateTime::fromString(text, "yyyy-MM-dd hh:mm:ss");
}

// The object as the other end of the wire reads it; `readToTheEnd` says
// whether the reading took every byte the writing gave.
inline TriggerObject ThroughTheWire(const TriggerObject& object, bool* readToTheEnd = nullptr) {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    object.Write(out);
    TriggerObject read;
    QDataStream in(bytes);
    read.Read(in);
    if (readToTheEnd != nullptr) {
        *readToTheEnd = in.atEnd();
    }
    return read;
}
