#include "StatusCommand.h"

#include "ArgumentList.h"
#include "RelativeTime.h"
#include "ServiceEndpoint.h"
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

#include <array>

namespace {
constexpr int kConnectMSecs = 1000;
const QString kMomentFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

using Row = std::array<QString, 7>;

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

// Times of day are the local texts the service keeps, compared with `now`.
Row TableRow(const RunStateReader::Plan& plan, qint64 nowMSecs) {
    const QDateTime next = LocalTime::Parse(plan.nextStart);
    Row row;
    row[0] = plan.endFlag != 0 ? "ended" : (next.isValid() ? plan.nextStart : "-");
    row[1] =
        next.isValid() && plan.endFlag == 0 ? RelativeTime::Left(next.toMSecsSinceEpoch() - nowMSecs) : "-";
    row[2] = plan.lastDue.isEmpty() ? "never" : plan.lastDue;
    row[3] = plan.lastDue.isEmpty() ? "-" : RelativeTime::Ago(nowMSecs - plan.lastHandedMSecs);
    row[4] = ResultText(plan);
    row[5] = TriggerTypeNames::Name(plan.triggerType);
    row[6] = plan.planUuid;
    return row;
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

QString Table(const QVector<RunStateReader::Plan>& plans, qint64 nowMSecs) {
    std::vector<Row> rows;
    rows.reserve(static_cast<size_t>(plans.size()) + 1);
    rows.push_back({"NEXT", "LEFT", "LAST", "PASSED", "RESULT", "TYPE", "PLAN"});
    for (const RunStateReader::Plan& plan : plans) {
        rows.push_back(TableRow(plan, nowMSecs));
    }
    std::array<int, 7> widths{};
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = qMax(widths[i], row[i].size());
        }
    }
    QString text;
    text.reserve(static_cast<int>(rows.size()) * 120);
    for (const Row& row : rows) {
        for (size_t i = 0; i + 1 < row.size(); ++i) {
            text += row[i].leftJustified(widths[i] + 2);
        }
        text += row.back() + '\n';
    }
    return text;
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

QString Json(const Service& service, const QVector<RunStateReader::Plan>& plans) {
    QJsonArray list;
    for (const RunStateReader::Plan& plan : plans) {
        list.append(QJsonObject{{"plan", plan.planUuid},
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
           "answer (ok, failed, waiting), the trigger type and the plan. While the service is down it\n"
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
    if (arguments.contains("--help")) {
        return ToolOutput::Out(Help(), 0);
    }
    QStringList rest = arguments;
    const bool json = rest.removeAll("--json") > 0;
    ArgumentList parsed;
    QString error;
    if (!parsed.Parse(rest, {"--plan", "--state", "--server", "--port", "--now"}, error)) {
        return ToolOutput::UsageError("status", error);
    }
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
    if (json) {
        return ToolOutput::Out(Json(service, plans), 0);
    }
    const qint64 nowMSecs = now.toMSecsSinceEpoch();
    return ToolOutput::Out(Headline(service, nowMSecs) + Table(plans, nowMSecs), 0);
}
