#include "PreviewCommand.h"

#include "ArgumentList.h"
#include "ServiceEndpoint.h"
#include "StoredPlan.h"
#include "ToolOutput.h"
#include "TriggerOptions.h"

#include "framework/Clock.h"
#include "triggers/FireState.h"
#include "triggers/LocalTime.h"
#include "triggers/StartTimeSeries.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {
using Entries = QVector<StartTimeSeries::Entry>;

struct Request {
    qint64 now = 0;
    quint64 count = 0;
    bool poll = false;
};

// A reading of a repeated hour means its first occurrence, as for every
// trigger text.
bool ParseNow(const ArgumentList& parsed, qint64& now) {
    if (!parsed.Has("--now")) {
        now = Clock::nowMSecsSinceEpoch();
        return true;
    }
    const QString text = parsed.Value("--now");
    const bool withMSecs = text.size() == 23 && text.at(19) == '.';
    const QDateTime second = LocalTime::Parse(withMSecs ? text.left(19) : text);
    now = second.toMSecsSinceEpoch() + (withMSecs ? text.mid(20).toInt() : 0);
    return second.isValid();
}

QString OffsetText(int offsetSecs) {
    const int minutes = qAbs(offsetSecs) / 60;
    return QString("%1%2:%3")
        .arg(offsetSecs < 0 ? '-' : '+')
        .arg(minutes / 60, 2, 10, QChar('0'))
        .arg(minutes % 60, 2, 10, QChar('0'));
}

QString Mark(const StartTimeSeries::Entry& entry) {
    if (entry.movedByGap) {
        return " (moved on by the skipped time)";
    }
    return entry.inRepeatedHour ? " (in the repeated hour)" : QString();
}

QString Lines(const Entries& entries, bool offsets) {
    QString text;
    for (const StartTimeSeries::Entry& entry : entries) {
        text += entry.Text();
        if (offsets && entry.state == FireState::kScheduled) {
            text += ' ' + OffsetText(entry.offsetSecs) + Mark(entry);
        }
        text += '\n';
    }
    return text;
}

QString Json(const Entries& entries) {
    QJsonArray starts;
    QJsonValue end;
    for (const StartTimeSeries::Entry& entry : entries) {
        if (entry.state != FireState::kScheduled) {
            end = entry.Text();
            continue;
        }
        starts.append(
            QJsonObject{{"start", entry.Text()},
                        {"offset", OffsetText(entry.offsetSecs)},
                        {"utc", QDateTime::fromMSecsSinceEpoch(entry.msecs, Qt::UTC).toString(Qt::ISODate)},
                        {"movedByGap", entry.movedByGap},
                        {"repeatedHour", entry.inRepeatedHour}});
    }
    return QString::fromUtf8(QJsonDocument(QJsonObject{{"starts", starts}, {"end", end}}).toJson());
}

// Where the service stands with the plan, then as it goes on from there.
bool StoredEntries(const ArgumentList& parsed, const Request& request, Entries& entries, QString& error) {
    StoredPlan plan;
    if (!plan.Load(parsed.Value("--db", ServiceEndpoint::DatabasePath()),
                   parsed.Value("--state", ServiceEndpoint::StatePath()), parsed.Value("--plan"), error)) {
        return false;
    }
    qint64 next = 0;
    if (plan.ended()) {
        StartTimeSeries::Entry finished;
        finished.state = FireState::kFinished;
        entries << finished;
    } else if (!plan.nextStart(next)) {
        entries = StartTimeSeries::Walk(plan.object(), request.now, request.count, request.poll, false);
    } else if (request.count > 0) {
        entries << StartTimeSeries::StartAt(next, false)
                << StartTimeSeries::Walk(plan.object(), next, request.count - 1, request.poll, true);
    }
    return true;
}
} // namespace

QString PreviewCommand::Help() {
    return "Usage: orvelctl preview (--type N --start TIME [options] | --plan UUID) [--now TIME]\n"
           "Prints the next start times of a trigger, one per line, as the service computes them;\n"
           "'finished' when the trigger has no further start, 'error' when none can be found.\n\n" +
           TriggerOptions::Help() +
           "  --plan UUID         a stored plan instead (data/alldb.db beside orvelctl), going on from\n"
           "                      the next start its run state holds (data/state.db), as the service does\n"
           "  --db PATH           the database for --plan\n"
           "  --state PATH        the run state for --plan\n"
           "  --now TIME          \"yyyy-MM-dd hh:mm:ss[.zzz]\": the moment of the first computation\n"
           "                      (default: now)\n"
           "  --count K           number of computations (default 5)\n"
           "  --mode timer|poll   timer (default): each follow-up starts from the previous start time;\n"
           "                      poll: every computation starts from the beginning of its minute,\n"
           "                      and a plan runs at most once a minute\n"
           "  --offsets           add each start's UTC offset, and mark a start that the skipped hour\n"
           "                      of a spring-forward night moved on or that lies in a repeated hour\n"
           "  --json              the starts as one JSON document\n\n"
           "Example:\n"
           "  orvelctl preview --type 3 --start \"2026-01-05 20:00:00\" --week-days \"1,3,5\" \\\n"
           "      --interval 600 --duration 1800 --now \"2026-03-12 10:00:00\" --count 6\n";
}

int PreviewCommand::Run(const QStringList& arguments) {
    const QStringList own = {"--now", "--count", "--mode", "--plan", "--db", "--state"};
    ArgumentList parsed;
    const int done =
        parsed.Read(arguments, "preview", Help(), TriggerOptions::Flags() + own, {"--json", "--offsets"});
    if (done != ArgumentList::kGoOn) {
        return done;
    }
    const bool json = parsed.Switch("--json");
    const bool offsets = parsed.Switch("--offsets");
    QString error;
    Request request;
    if (!ParseNow(parsed, request.now)) {
        return ToolOutput::UsageError("preview", "--now must read \"yyyy-MM-dd hh:mm:ss[.zzz]\"");
    }
    if (!parsed.Unsigned("--count", 5, request.count, error)) {
        return ToolOutput::UsageError("preview", error);
    }
    const QString mode = parsed.Value("--mode", "timer");
    if (mode != "timer" && mode != "poll") {
        return ToolOutput::UsageError("preview", "--mode takes timer or poll");
    }
    request.poll = mode == "poll";
    Entries entries;
    if (parsed.Has("--plan")) {
        if (parsed.Has("--type")) {
            return ToolOutput::UsageError("preview",
                                          "--plan takes its trigger from the database, not --type");
        }
        if (!StoredEntries(parsed, request, entries, error)) {
            return ToolOutput::Fail(QString("orvelctl preview: %1").arg(error), 1);
        }
    } else {
        TriggerObject object;
        if (!TriggerOptions::Build(parsed, object.getObjectTriggerAttribute(), error)) {
            return ToolOutput::UsageError("preview", error);
        }
        object.setPlanUuid("preview");
        entries = StartTimeSeries::Walk(object, request.now, request.count, request.poll, false);
    }
    return ToolOutput::Out(json ? Json(entries) : Lines(entries, offsets), 0);
}
