#include "PlanCommand.h"

#include "ArgumentList.h"
#include "ServiceEndpoint.h"
#include "ToolOutput.h"
#include "TriggerOptions.h"
#include "triggers/TriggerTypeNames.h"

#include "framework/CommandBuilder.h"
#include "framework/ConfigReader.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/FrameReader.h"
#include "framework/PeerAccessPolicy.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"
#include "framework/WireFormat.h"
#include "triggers/FireState.h"

#include <QElapsedTimer>
#include <QTcpSocket>

#include <memory>

#include <unistd.h>

namespace {
constexpr int kConnectMSecs = 2000;
constexpr int kReplyMSecs = 10000;

bool BuildAttribute(const ArgumentList& arguments, TriggerAttribute& attribute, QString& error) {
    if (!arguments.Has("--event")) {
        return TriggerOptions::Build(arguments, attribute, error);
    }
    if (arguments.Has("--type")) {
        error = "--event and --type exclude each other";
        return false;
    }
    const QString event = arguments.Value("--event");
    if (!TriggerTypeNames::Events().contains(event)) {
        error = QString("--event takes logon, logoff, lock or unlock, not '%1'").arg(event);
        return false;
    }
    attribute.setTriggerType(TriggerTypeNames::Events().value(event));
    return true;
}

RequestCommand* NewRequest(quint64 type, const QString& planUuid) {
    auto* command = static_cast<RequestCommand*>(CommandBuilder::BuilderCommand(type));
    command->setPlanUuid(planUuid);
    command->getObjectCommunAttribute().setProtocolType(2);
    return command;
}

bool ReadReply(QTcpSocket& socket, QByteArray& payload) {
    FrameReader reader;
    QElapsedTimer timer;
    timer.start();
    while (!reader.Next(payload)) {
        if (reader.Failed() || timer.elapsed() > kReplyMSecs || !socket.waitForReadyRead(kReplyMSecs)) {
            return false;
        }
        reader.Append(socket.readAll());
    }
    return true;
}
} // namespace

QString PlanCommand::Help() {
    return "Usage: orvelctl plan add|modify|delete --plan UUID [options]\n"
           "Records the plan in the service's database (data/alldb.db beside the service) and sends\n"
           "the new-plan (200), modify-plan (204) or delete-plan (203) command to the running service.\n"
           "Exits 0 only when the service answers with result 0. Only the users and groups of\n"
           "[Communication] AllowedUsers and AllowedGroups may change plans (root and the service's\n"
           "group by default).\n\n"
           "  --plan UUID         the plan's identity (required)\n"
           "  --name NAME         the plan's display name\n"
           "  --event KIND        an event trigger instead of a calendar one: logon, logoff, lock, unlock\n" +
           TriggerOptions::Help() +
           "  --db PATH           the database file (default: data/alldb.db beside orvelctl)\n"
           "  --server HOST       the service's address (default: SchedulerLocalServerName of "
           "cfg/config.ini)\n"
           "  --port P            the service's port (default 6060)\n\n"
           "Examples:\n"
           "  orvelctl plan add --plan nightly --type 2 --start \"2026-01-01 02:00:00\"\n"
           "  orvelctl plan add --plan at-logon --event logon\n"
           "  orvelctl plan delete --plan nightly\n";
}

int PlanCommand::Run(const QStringList& arguments) {
    if (arguments.contains("--help") || arguments.isEmpty()) {
        return ToolOutput::Out(Help(), arguments.isEmpty() ? 2 : 0);
    }
    const QString action = arguments.first();
    if (action != "add" && action != "modify" && action != "delete") {
        return ToolOutput::UsageError("plan", QString("unknown action '%1'").arg(action));
    }
    ArgumentList parsed;
    QString error;
    const QStringList known =
        TriggerOptions::Flags() + QStringList{"--plan", "--name", "--event", "--db", "--server", "--port"};
    if (!parsed.Parse(arguments.mid(1), known, error)) {
        return ToolOutput::UsageError("plan", error);
    }
    const QString planUuid = parsed.Value("--plan");
    if (planUuid.isEmpty()) {
        return ToolOutput::UsageError("plan", "--plan is required");
    }
    TriggerAttribute attribute;
    if (action != "delete" && !BuildAttribute(parsed, attribute, error)) {
        return ToolOutput::UsageError("plan", error);
    }
    ServiceEndpoint::LoadConfiguration();
    quint64 port = 0;
    if (!parsed.Unsigned("--port", ConfigReader::getSchedulerPort(), port, error) || port == 0 ||
        port > 65535) {
        return ToolOutput::UsageError("plan", error.isEmpty() ? "--port takes 1 to 65535" : error);
    }
    // The service refuses such a user anyway; saying so here leaves the
    // database untouched and names the reason.
    const uid_t user = ::geteuid();
    if (!PeerAccessPolicy::FromConfig(ServiceEndpoint::ServiceGroup()).Allows(user)) {
        return ToolOutput::Fail(QString("not allowed: user %1 is not in AllowedUsers or AllowedGroups")
                                    .arg(PeerAccessPolicy::UserLabel(user)),
                                1);
    }
    DatabaseFunctionOperation database;
    const QString path = parsed.Value("--db", ServiceEndpoint::DatabasePath());
    if (!database.OpenForWriting(path, error)) {
        return ToolOutput::Fail(QString("orvelctl plan: cannot open %1: %2").arg(path, error), 1);
    }
    const QString name = parsed.Value("--name");
    RequestCommand* command = nullptr;
    bool stored = false;
    if (action == "add") {
        stored = database.AddTrigger(planUuid, name, attribute, error);
        RequestNewOperationData data;
        data.setPlanName(name);
        data.setTriggerAttribute(attribute);
        command = NewRequest(CommandTypes::kNewPlan, planUuid);
        CommandBuilder::DataToBytearray(&data, command->getRfrnRequestData());
    } else if (action == "modify") {
        stored = database.StoreTrigger(planUuid, name, attribute, error);
        SchedulerPlanData data;
        data.getRfrnSchedulerPlan().setPlanUuid(planUuid);
        data.getRfrnSchedulerPlan().setPlanName(name);
        data.getRfrnSchedulerPlan().getObjectTriggerAttribute() = attribute;
        command = NewRequest(CommandTypes::kModifyPlan, planUuid);
        CommandBuilder::DataToBytearray(&data, command->getRfrnRequestData());
    } else {
        stored = database.RemoveTrigger(planUuid, error);
        command = NewRequest(CommandTypes::kDeletePlan, planUuid);
    }
    database.UnInit();
    if (!stored) {
        CommandBuilder::DestroyCommand(command);
        return ToolOutput::Fail(QString("orvelctl plan: cannot record the plan in %1: %2").arg(path, error),
                                1);
    }
    const QString host = parsed.Value("--server", ConfigReader::getSchedulerLocalServerName());
    return Send(command, host, static_cast<quint16>(port));
}

int PlanCommand::Send(CommCommand* command, const QString& host, quint16 port) {
    std::unique_ptr<CommCommand> owned(command);
    QTcpSocket socket;
    socket.connectToHost(host, port);
    if (!socket.waitForConnected(kConnectMSecs)) {
        return ToolOutput::Fail(
            QString("No scheduler service is listening on %1:%2; the plan is recorded and the "
                    "service loads it at its next start.")
                .arg(host)
                .arg(port),
            1);
    }
    socket.write(FrameReader::Frame(CommandBuilder::CommandToBytearray(owned.get())));
    QByteArray payload;
    if (!ReadReply(socket, payload)) {
        return ToolOutput::Fail(QString("The service at %1:%2 sent no reply to command %3%4.")
                                    .arg(host)
                                    .arg(port)
                                    .arg(owned->getCommandType())
                                    .arg(owned->getTraceFlag()),
                                1);
    }
    std::unique_ptr<CommCommand> reply(CommandBuilder::BytearrayToCommand(payload));
    auto* result = dynamic_cast<ResultCommand*>(reply.get());
    if (result == nullptr) {
        return ToolOutput::Fail(
            QString("The service at %1:%2 sent a reply that is not a result.").arg(host).arg(port), 1);
    }
    const quint64 code = result->getUintResult();
    ToolOutput::Out(QString("plan %1: command %2%3 result %4\n")
                        .arg(owned->getPlanUuid())
                        .arg(owned->getCommandType())
                        .arg(owned->getTraceFlag())
                        .arg(code),
                    0);
    return code == 0 ? 0 : 1;
}
