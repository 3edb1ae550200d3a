#pragma once

#include "framework/TriggerAttribute.h"

#include <QString>

class CommCommand;

// Whether a plan's trigger could ever be scheduled. A plan command with such a
// definition is refused and a stored row with one is skipped, so that nothing
// is registered that would only fail once its fire starts. Only the fields the
// trigger's type reads are looked at: an event trigger's start time is never
// parsed.
class TriggerCheck {
public:
    // A key longer than this cannot come from the suite, and would make every
    // command about the plan larger than the link to the agent carries.
    static constexpr int kMaxPlanUuidBytes = 255;
    // Intervals and durations beyond a century cannot come from a real plan;
    // they would overflow the date arithmetic.
    static constexpr quint64 kMaxSpanSecs = 100ULL * 366 * 24 * 3600;

    // Empty when the plan can be scheduled; otherwise the field at fault and
    // why, as a phrase for a log line ("week days \"8\" hold a value outside
    // 1-7"). Field values in it are made safe for the log.
    static QString Fault(const QString& planUuid, const TriggerAttribute& attribute);
    static QString PlanUuidFault(const QString& planUuid);
    // The same for a plan command as it arrives: its plan UUID and, for a new
    // or modified plan, the definition its payload carries, which must decode.
    static QString CommandFault(const CommCommand& request);

    // One time text ("" allowed, and "0000-00-00 00:00:00" where it may mean
    // no end) and one calendar list (values 1 to highest).
    static QString TimeFault(const char* field, const QString& text, bool mayBeNoEnd);
    static QString ListFault(const char* field, const QString& text, quint64 highest);

private:
    static QString CalendarFault(const TriggerAttribute& attribute);
    static QString SpanFault(const char* field, quint64 secs);
};
