#include "StatusCommand.h"

#include "ArgumentList.h"
#include "OccurrenceText.h"
#include "RelativeTime.h"
#include "ServiceEndpoint.h"
#include "TextTable.h"
#include "ToolOutput.h"
#include "triggers/TriggerTypeNames.h"

#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "store/RunStateReader.h"
#include "triggers/LocalTime.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

namespace {
constexpr int kConnectMSecs = 1000;
const QString kMomentFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

struct Service {
    QString endpoint;
    bool running = false;
    qint64 writtenAtMSecs = 0;
};

bool Answers(const QString& host, quint16 port) {
    QTcpSocket socket;
    socket.connectToHost(host, port);
    return socket.waitForConnected(kConnectMSecs);
}

QString ResultText(const RunStateReader::Plan& plan) {
    if (plan.lastDue.isEmpty()) {
        return "-";
    }
    if (!plan.hasResult || plan.resultMSecs < plan.lastHandedMSecs) {
        return "waiting";
    }
    return plan.result == 0 ? "ok" : "failed";
}

using Occurrences = QHash<QString, RunHistoryReader::Row>;

// Times of day are the local texts the service keeps, compared with `now`.
QStringList TableRow(const RunStateReader::Plan& plan, const Occurrences& newest, qint64 nowMSecs) {
    const QDateTime next = LocalTime::Parse(plan.nextStart);
    const auto occurrence = newest.constFind(plan.planUuid);
    return {plan.endFlag != 0 ? "ended" : (next.isValid() ? plan.nextStart : "-"),
            next.isValid() && plan.endFlag == 0 ? RelativeTime::Left(next.toMSecsSinceEpoch() - nowMSecs)
                                                : "-",
            plan.lastDue.isEmpty() ? "never" : plan.lastDue,
            plan.lastDue.isEmpty() ? "-" : RelativeTime::Ago(nowMSecs - plan.lastHandedMSecs),
            ResultText(plan),
            occurrence != newest.constEnd() ? OccurrenceText::Summary(*occurrence) : "-",
            TriggerTypeNames::Name(plan.triggerType),
            plan.planUuid};
}

QString Moment(qint64 msecs) {
    return QDateTime::fromMSecsSinceEpoch(msecs).toString(kMomentFormat);
}

QString Headline(const Service& service, qint64 nowMSecs) {
    const QString state =
        service.running
            ? QString("The scheduler service is running (%1 answers)").arg(service.endpoint)
            : QString("The scheduler service is not running (nothing answers on %1)").arg(service.endpoint);
    if (service.writtenAtMSecs == 0) {
        return state + "; its run state has not been written yet.\n";
    }
    return QString("%1; its run state was last written %2, at %3.\n")
        .arg(state, RelativeTime::Ago(nowMSecs - service.writtenAtMSecs), Moment(service.writtenAtMSecs));
}

QString Table(const QVector<RunStateReader::Plan>& plans, const Occurrences& newest, qint64 nowMSecs) {
    std::vector<QStringList> rows;
    rows.reserve(static_cast<size_t>(plans.size()) + 1);
    rows.push_back({"NEXT", "LEFT", "LAST", "PASSED", "RESULT", "OCCURRENCE", "TYPE", "PLAN"});
    for (const RunStateReader::Plan& plan : plans) {
        rows.push_back(TableRow(plan, newest, nowMSecs));
    }
    return TextTable::Format(rows);
}

// The newest occurrence of each plan shown; none from a file without a
// history.
Occurrences NewestOccurrences(const QString& path, const QString& planUuid) {
    RunHistoryReader reader;
    QString error;
    Occurrences newest;
    if (!reader.Open(path, error)) {
        return newest;
    }
    if (planUuid.isEmpty()) {
        reader.ReadNewest(newest, error);
        return newest;
    }
    QVector<RunHistoryReader::Row> rows;
    if (reader.Read({planUuid, 0, QString(), 1}, rows, error) && !rows.isEmpty()) {
        newest.insert(planUuid, rows.front());
    }
    return newest;
}

QJsonValue OrNull(bool present, const QJsonValue& value) {
    return present ? value : QJsonValue();
}

QJsonValue MomentOrNull(qint64 msecs) {
    if (msecs == 0) {
        return QJsonValue();
    }
    const QDateTime t = QDateTime::fromMSecsSinceEpoch(msecs);
    return t.toOffsetFromUtc(t.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

QString Json(const Service& service, const QVector<RunStateReader::Plan>& plans, const Occurrences& newest) {
    QJsonArray list;
    for (const RunStateReader::Plan& plan : plans) {
        const auto occurrence = newest.constFind(plan.planUuid);
        const bool known = occurrence != newest.constEnd();
        list.append(QJsonObject{
            {"plan", plan.planUuid},
            {"outcome",
             OrNull(known, known ? OccurrenceText::Outcome(*occurrence).replace(' ', '-') : QString())},
            {"reason", OrNull(known, known ? OccurrenceText::Reason(*occurrence) : QString())},
            {"type", TriggerTypeNames::Name(plan.triggerType)},
            {"nextStart", OrNull(!plan.nextStart.isEmpty(), plan.nextStart)},
            {"ended", plan.endFlag != 0},
            {"lastDue", OrNull(!plan.lastDue.isEmpty(), plan.lastDue)},
            {"lastHanded", MomentOrNull(plan.lastHandedMSecs)},
            {"result", OrNull(plan.hasResult, static_cast<qint64>(plan.result))},
            {"resultAt", MomentOrNull(plan.resultMSecs)}});
    }
    const QJsonObject root{{"running", service.running},
                           {"endpoint", service.endpoint},
                           {"writtenAt", MomentOrNull(service.writtenAtMSecs)},
                           {"plans", list}};
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}
} // namespace

QString StatusCommand::Help() {
    return "Usage: orvelctl status [--plan UUID] [--json] [options]\n"
           "Shows the service's schedule from its run state (data/state.db beside orvelctl): whether\n"
           "the service runs, then one line per plan sorted by next start: the next start and the time\n"
           "left, the start the last run was for and how long ago it went to the agent, the agent's\n"
           "answer (ok, failed, waiting), what became of the plan's newest start and why (see orvelctl\n"
           "history), the trigger type and the plan. While the service is down it\n"
           "shows the last state the service wrote.\n\n"
           "  --plan UUID         only this plan\n"
           "  --json              the same as one JSON document\n"
           "  --state PATH        the run state file (default: data/state.db beside orvelctl)\n"
           "  --server HOST       the service's address (default: SchedulerLocalServerName of "
           "cfg/config.ini)\n"
           "  --port P            the service's port (default: SchedulerPort of cfg/config.ini, 6060)\n"
           "  --now TIME          \"yyyy-MM-dd hh:mm:ss\": measure from this moment instead of now\n";
}

int StatusCommand::Run(const QStringList& arguments) {
    ArgumentList parsed;
    const int done = parsed.Read(arguments, "status", Help(),
                                 {"--plan", "--state", "--server", "--port", "--now"}, {"--json"});
    if (done != ArgumentList::kGoOn) {
        return done;
    }
    const bool json = parsed.Switch("--json");
    QString error;
    ServiceEndpoint::LoadConfiguration();
    quint64 port = 0;
    if (!parsed.Unsigned("--port", ConfigReader::getSchedulerPort(), port, error) || port == 0 ||
        port > 65535) {
        return ToolOutput::UsageError("status", error.isEmpty() ? "--port takes 1 to 65535" : error);
    }
    const QDateTime now = parsed.Has("--now") ? LocalTime::Parse(parsed.Value("--now")) : Clock::now();
    if (!now.isValid()) {
        return ToolOutput::UsageError("status", "--now must read \"yyyy-MM-dd hh:mm:ss\"");
    }
    const QString path = parsed.Value("--state", ServiceEndpoint::StatePath());
    RunStateReader reader;
    QVector<RunStateReader::Plan> plans;
    if (!reader.Open(path, error) || !reader.Read(parsed.Value("--plan"), plans, error)) {
        return ToolOutput::Fail(QString("orvelctl status: cannot read the run state %1: %2").arg(path, error),
                                1);
    }
    if (parsed.Has("--plan") && plans.isEmpty()) {
        return ToolOutput::Fail(
            QString("orvelctl status: the run state knows no plan '%1'").arg(parsed.Value("--plan")), 1);
    }
    Service service;
    const QString host = parsed.Value("--server", ConfigReader::getSchedulerLocalServerName());
    service.endpoint = QString("%1:%2").arg(host).arg(port);
    service.running = Answers(host, static_cast<quint16>(port));
    service.writtenAtMSecs = reader.WrittenAtMSecs();
    const Occurrences newest = NewestOccurrences(path, parsed.Value("--plan"));
    if (json) {
        return ToolOutput::Out(Json(service, plans, newest), 0);
    }
    const qint64 nowMSecs = now.toMSecsSinceEpoch();
    return ToolOutput::Out(Headline(service, nowMSecs) + Table(plans, newest, nowMSecs), 0);
}
