#include "TriggerOptions.h"

#include "ArgumentList.h"

#include "triggers/TriggerCheck.h"

const QStringList& TriggerOptions::Flags() {
    static const QStringList flags = {"--type",      "--start",  "--end",        "--interval", "--duration",
                                      "--week-days", "--months", "--month-days", "--day-last"};
    return flags;
}

QString TriggerOptions::Help() {
    return "  --type N            1 once, 2 daily, 3 weekly, 4 monthly\n"
           "  --start TIME        \"yyyy-MM-dd hh:mm:ss\": first day and daily start time\n"
           "                      (empty: the current minute, as the service does)\n"
           "  --end TIME          \"yyyy-MM-dd hh:mm:ss\": no start after it (default: none)\n"
           "  --interval S        repeat every S seconds (default 0: no repetition)\n"
           "  --duration S        repetitions stop S seconds after the daily start (default 0: no limit)\n"
           "  --week-days LIST    weekly: days 1 (Monday) to 7 (Sunday), e.g. \"1,3,5\"\n"
           "  --months LIST       monthly: months 1 to 12, e.g. \"6,12\" (default: all)\n"
           "  --month-days LIST   monthly: days 1 to 31, e.g. \"1,15\" (default: all)\n"
           "  --day-last 0|1      monthly: also the last day of each month\n";
}

bool TriggerOptions::Refuse(const QString& flag, const QString& fault, QString& error) {
    if (fault.isEmpty()) {
        return false;
    }
    error = QString("%1: %2").arg(flag, fault);
    return true;
}

bool TriggerOptions::Build(const ArgumentList& arguments, TriggerAttribute& attribute, QString& error) {
    quint64 type = 0;
    quint64 interval = 0;
    quint64 duration = 0;
    quint64 dayLast = 0;
    if (!arguments.Has("--type")) {
        error = "--type is required";
        return false;
    }
    if (!arguments.Unsigned("--type", 0, type, error) ||
        !arguments.Unsigned("--interval", 0, interval, error) ||
        !arguments.Unsigned("--duration", 0, duration, error) ||
        !arguments.Unsigned("--day-last", 0, dayLast, error)) {
        return false;
    }
    if (dayLast > 1) {
        error = "--day-last takes 0 or 1";
        return false;
    }
    const QString start = arguments.Value("--start");
    const QString end = arguments.Value("--end");
    if (Refuse("--start", TriggerCheck::TimeFault("start time", start, false), error) ||
        Refuse("--end", TriggerCheck::TimeFault("end time", end, true), error) ||
        Refuse("--week-days", TriggerCheck::ListFault("week days", arguments.Value("--week-days"), 7),
               error) ||
        Refuse("--months", TriggerCheck::ListFault("months", arguments.Value("--months"), 12), error) ||
        Refuse("--month-days", TriggerCheck::ListFault("month days", arguments.Value("--month-days"), 31),
               error)) {
        return false;
    }
    attribute.setTriggerType(type);
    attribute.setStartTime(start);
    attribute.setEndTime(end);
    attribute.setInterval(interval);
    attribute.setDuration(duration);
    attribute.setWeekDays(arguments.Value("--week-days"));
    attribute.setWhichMoths(arguments.Value("--months"));
    attribute.setMonthDays(arguments.Value("--month-days"));
    attribute.setDayLastFlag(dayLast);
    return true;
}
