#include "PreviewCommand.h"

#include "ArgumentList.h"
#include "ToolOutput.h"
#include "TriggerOptions.h"

#include "triggers/LocalTime.h"
#include "triggers/StartTimeSeries.h"
#include "triggers/TriggerObject.h"

#include <QDateTime>

namespace {
// A reading of a repeated hour means its first occurrence, as for every
// trigger text.
QDateTime ParseNow(const QString& text) {
    if (text.size() == 23 && text.at(19) == '.') {
        const QDateTime second = LocalTime::Parse(text.left(19));
        return second.isValid() ? second.addMSecs(text.mid(20).toInt()) : QDateTime();
    }
    return LocalTime::Parse(text);
}
} // namespace

QString PreviewCommand::Help() {
    return "Usage: orvelctl preview --type N --start TIME --now TIME [options]\n"
           "Prints the next start times of a trigger, one per line, as the service computes them;\n"
           "'finished' when the trigger has no further start, 'error' when none can be found.\n\n" +
           TriggerOptions::Help() +
           "  --now TIME          \"yyyy-MM-dd hh:mm:ss[.zzz]\": the moment of the first computation\n"
           "  --count K           number of computations (default 5)\n"
           "  --mode timer|poll   timer (default): each follow-up starts from the previous start time;\n"
           "                      poll: every computation starts from the beginning of its minute,\n"
           "                      and a plan runs at most once a minute\n\n"
           "Example:\n"
           "  orvelctl preview --type 3 --start \"2026-01-05 20:00:00\" --week-days \"1,3,5\" \\\n"
           "      --interval 600 --duration 1800 --now \"2026-03-12 10:00:00\" --count 6\n";
}

int PreviewCommand::Run(const QStringList& arguments) {
    if (arguments.contains("--help")) {
        return ToolOutput::Out(Help(), 0);
    }
    ArgumentList parsed;
    QString error;
    if (!parsed.Parse(arguments, TriggerOptions::Flags() + QStringList{"--now", "--count", "--mode"},
                      error)) {
        return ToolOutput::UsageError("preview", error);
    }
    TriggerObject object;
    if (!TriggerOptions::Build(parsed, object.getObjectTriggerAttribute(), error)) {
        return ToolOutput::UsageError("preview", error);
    }
    const QDateTime now = ParseNow(parsed.Value("--now"));
    if (!now.isValid()) {
        return ToolOutput::UsageError("preview", "--now must read \"yyyy-MM-dd hh:mm:ss[.zzz]\"");
    }
    quint64 count = 0;
    if (!parsed.Unsigned("--count", 5, count, error)) {
        return ToolOutput::UsageError("preview", error);
    }
    const QString mode = parsed.Value("--mode", "timer");
    if (mode != "timer" && mode != "poll") {
        return ToolOutput::UsageError("preview", "--mode takes timer or poll");
    }
    object.setPlanUuid("preview");
    const QStringList lines = StartTimeSeries::Compute(object, now.toMSecsSinceEpoch(), count, mode == "poll");
    return ToolOutput::Out(lines.isEmpty() ? QString() : lines.join('\n') + '\n', 0);
}
