#include "TriggerOptions.h"

#include "ArgumentList.h"

#include "triggers/LocalTime.h"

namespace {
const QString kNoEnd = QStringLiteral("0000-00-00 00:00:00");
} // namespace

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

bool TriggerOptions::IsDateTimeText(const QString& text) {
    return LocalTime::IsWellFormed(text);
}

bool TriggerOptions::CheckList(const ArgumentList& arguments, const QString& flag, quint64 highest,
                               QString& error) {
    const QStringList tokens = arguments.Value(flag).split(',', Qt::SkipEmptyParts);
    for (const QString& token : tokens) {
        bool ok = false;
        const QString trimmed = token.trimmed();
        const quint64 value = trimmed.toULongLong(&ok, 10);
        if (!ok || trimmed.isEmpty() || !trimmed.front().isDigit() || value < 1 || value > highest) {
            error =
                QString("%1 takes values from 1 to %2, not '%3'").arg(flag).arg(highest).arg(token.trimmed());
            return false;
        }
    }
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
    if (!start.isEmpty() && !IsDateTimeText(start)) {
        error = QString("--start must read \"yyyy-MM-dd hh:mm:ss\", not '%1'").arg(start);
        return false;
    }
    const QString end = arguments.Value("--end");
    if (!end.isEmpty() && end != kNoEnd && !IsDateTimeText(end)) {
        error = QString("--end must read \"yyyy-MM-dd hh:mm:ss\", not '%1'").arg(end);
        return false;
    }
    if (!CheckList(arguments, "--week-days", 7, error) || !CheckList(arguments, "--months", 12, error) ||
        !CheckList(arguments, "--month-days", 31, error)) {
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
