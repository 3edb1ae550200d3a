#include "HistoryCommand.h"

#include "ArgumentList.h"
#include "OccurrenceText.h"
#include "RelativeTime.h"
#include "ServiceEndpoint.h"
#include "TextTable.h"
#include "ToolOutput.h"

#include "framework/Clock.h"
#include "store/RunHistoryReader.h"
#include "triggers/LocalTime.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {
QString Moment(qint64 msecs) {
    return LocalTime::Format(QDateTime::fromMSecsSinceEpoch(msecs));
}

QJsonValue IsoOrNull(bool present, qint64 msecs) {
    if (!present) {
        return QJsonValue();
    }
    const QDateTime t = QDateTime::fromMSecsSinceEpoch(msecs);
    return t.toOffsetFromUtc(t.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

QJsonObject JsonRow(const RunHistoryReader::Row& row) {
    const bool handed = row.handedMSecs >= 0;
    return QJsonObject{
        {"plan", row.planUuid},
        {"due", Moment(row.dueMSecs)},
        {"handed", IsoOrNull(handed, row.handedMSecs)},
        {"lateMSecs", handed ? QJsonValue(row.handedMSecs - row.dueMSecs) : QJsonValue()},
        {"outcome", OccurrenceText::Outcome(row).replace(' ', '-')},
        {"reason", row.reason == RunHistory::Reason::None ? QJsonValue()
                                                          : QJsonValue(RunHistory::ReasonName(row.reason))},
        {"spreadMSecs", row.outcome == RunHistory::Outcome::CaughtUp ? QJsonValue(row.detail) : QJsonValue()},
        {"merged", row.merged},
        {"result", row.hasResult ? QJsonValue(row.result) : QJsonValue()},
        {"resultText", OccurrenceText::Result(row)},
        {"resultAt", IsoOrNull(row.hasResult && row.resultMSecs != 0, row.resultMSecs)},
    };
}

QString Json(const QVector<RunHistoryReader::Row>& rows) {
    QJsonArray list;
    for (const RunHistoryReader::Row& row : rows) {
        list.append(JsonRow(row));
    }
    return QString::fromUtf8(
        QJsonDocument(QJsonObject{{"occurrences", list}}).toJson(QJsonDocument::Indented));
}

QString Table(const QVector<RunHistoryReader::Row>& rows, qint64 nowMSecs) {
    std::vector<QStringList> lines;
    lines.reserve(static_cast<size_t>(rows.size()) + 1);
    lines.push_back({"DUE", "HANDED", "LATE", "OUTCOME", "REASON", "RESULT", "PLAN"});
    for (const RunHistoryReader::Row& row : rows) {
        const QString reason = OccurrenceText::Reason(row);
        lines.push_back({Moment(row.dueMSecs),
                         row.handedMSecs < 0 ? QString("-") : RelativeTime::Ago(nowMSecs - row.handedMSecs),
                         OccurrenceText::Late(row), OccurrenceText::Outcome(row),
                         reason.isEmpty() ? QString("-") : reason, OccurrenceText::Result(row),
                         row.planUuid});
    }
    return TextTable::Format(lines);
}

// "yyyy-MM-dd hh:mm:ss", or a span back from now ("1h", "2 days").
bool ReadSince(const QString& text, qint64 nowMSecs, qint64& sinceMSecs) {
    const QDateTime moment = LocalTime::Parse(text);
    if (moment.isValid()) {
        sinceMSecs = moment.toMSecsSinceEpoch();
        return true;
    }
    qint64 span = 0;
    if (!RelativeTime::ParseSpan(text, span)) {
        return false;
    }
    sinceMSecs = nowMSecs - span;
    return true;
}
} // namespace

QString HistoryCommand::Help() {
    return "Usage: orvelctl history [--plan UUID] [--since TIME] [--outcome NAME] [--json] [options]\n"
           "Shows what became of each start of each plan, newest first, from the run state\n"
           "(data/state.db beside orvelctl): the start, how long ago its run went to the agent, how late,\n"
           "the outcome and why, the agent's answer and the plan. Works while the service is down; it\n"
           "never writes the file.\n\n"
           "  --plan UUID         only this plan\n"
           "  --since TIME        only starts from TIME on: \"yyyy-MM-dd hh:mm:ss\" or a span back from\n"
           "                      now, as status writes spans (\"45 s\", \"1h\", \"4h 12min\", \"2 days\")\n"
           "  --outcome NAME      only this outcome: " +
           RunHistoryReader::OutcomeNames().join(", ") +
           "\n"
           "  --json              the same as one JSON document\n"
           "  --state PATH        the run state file (default: data/state.db beside orvelctl)\n"
           "  --now TIME          \"yyyy-MM-dd hh:mm:ss\": measure from this moment instead of now\n";
}

int HistoryCommand::Run(const QStringList& arguments) {
    ArgumentList parsed;
    const int done = parsed.Read(arguments, "history", Help(),
                                 {"--plan", "--since", "--outcome", "--state", "--now"}, {"--json"});
    if (done != ArgumentList::kGoOn) {
        return done;
    }
    const bool json = parsed.Switch("--json");
    const QDateTime now = parsed.Has("--now") ? LocalTime::Parse(parsed.Value("--now")) : Clock::now();
    if (!now.isValid()) {
        return ToolOutput::UsageError("history", "--now must read \"yyyy-MM-dd hh:mm:ss\"");
    }
    RunHistoryReader::Filter filter;
    filter.planUuid = parsed.Value("--plan");
    filter.outcome = parsed.Value("--outcome");
    if (parsed.Has("--since") &&
        !ReadSince(parsed.Value("--since"), now.toMSecsSinceEpoch(), filter.sinceMSecs)) {
        return ToolOutput::UsageError("history",
                                      "--since must read \"yyyy-MM-dd hh:mm:ss\" or a span such as 1h");
    }
    if (parsed.Has("--outcome") && !RunHistoryReader::OutcomeNames().contains(filter.outcome)) {
        return ToolOutput::UsageError(
            "history", QString("--outcome takes one of %1").arg(RunHistoryReader::OutcomeNames().join(", ")));
    }
    ServiceEndpoint::LoadConfiguration();
    const QString path = parsed.Value("--state", ServiceEndpoint::StatePath());
    RunHistoryReader reader;
    QVector<RunHistoryReader::Row> rows;
    QString error;
    if (!reader.Open(path, error) || !reader.Read(filter, rows, error)) {
        return ToolOutput::Fail(
            QString("orvelctl history: cannot read the run history %1: %2").arg(path, error), 1);
    }
    return ToolOutput::Out(json ? Json(rows) : Table(rows, now.toMSecsSinceEpoch()), 0);
}
