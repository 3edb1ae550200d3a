#include "AgentCommand.h"

#include "ArgumentList.h"
#include "ServiceEndpoint.h"
#include "ToolOutput.h"

#include "framework/Clock.h"
#include "framework/CommandBuilder.h"
#include "framework/CommunServer.h"
#include "framework/ConfigReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/ResultCommand.h"
#include "framework/WireFormat.h"
#include "platform/SignalBridge.h"

#include <QCoreApplication>
#include <memory>

QString AgentCommand::Help() {
    return "Usage: orvelctl agent [--listen HOST] [--port P] [--refuse PLAN,...]\n"
           "A stand-in agent: listens where the service sends its commands, answers each with result 0\n"
           "(1 for the runs of refused plans) and prints one line per command received:\n"
           "  <time received> <command type> <plan UUID> <next start time or -> <end flag>\n\n"
           "  --listen HOST       address to listen on (default: AgentLocalServerName of cfg/config.ini)\n"
           "  --port P            port to listen on (default: AgentPort of cfg/config.ini, 6061; 0 takes\n"
           "                      any free port, which the line \"listening on\" names)\n"
           "  --refuse PLAN,...   answer the runs (600) of these plans with result 1\n\n"
           "Example:\n"
           "  orvelctl agent --port 6061\n";
}

QString AgentCommand::Describe(const QByteArray& payload) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(payload));
    const QString received = Clock::now().toString("yyyy-MM-dd hh:mm:ss.zzz");
    auto* request = dynamic_cast<RequestCommand*>(command.get());
    if (request == nullptr) {
        return QString("%1 undecodable %2 bytes").arg(received).arg(payload.size());
    }
    RequestTriggerExecuteInfoData data;
    CommandBuilder::BytearrayToData(request->getRfrnRequestData(), &data);
    const QString next = data.getNextStartTime().isEmpty() ? "-" : data.getNextStartTime();
    return QString("%1 %2 %3 %4 %5")
        .arg(received)
        .arg(request->getCommandType())
        .arg(request->getPlanUuid(), next)
        .arg(data.getTriggerEndFlag());
}

int AgentCommand::Run(const QStringList& arguments) {
    ArgumentList parsed;
    const int done = parsed.Read(arguments, "agent", Help(), {"--listen", "--port", "--refuse"});
    if (done != ArgumentList::kGoOn) {
        return done;
    }
    QString error;
    ServiceEndpoint::LoadConfiguration();
    quint64 port = 0;
    if (!parsed.Unsigned("--port", ConfigReader::getAgentPort(), port, error) || port > 65535) {
        return ToolOutput::UsageError("agent", error.isEmpty() ? "--port takes 0 to 65535" : error);
    }
    const QString host = parsed.Value("--listen", ConfigReader::getAgentLocalServerName());
    CommunServer server;
    if (!server.Start(host, static_cast<quint16>(port))) {
        return ToolOutput::Fail(QString("orvelctl agent: cannot listen on %1:%2").arg(host).arg(port), 1);
    }
    const QStringList refused = parsed.Value("--refuse").split(',', Qt::SkipEmptyParts);
    QObject::connect(&server, &CommunServer::incomingBlockData, &server,
                     [&server, refused](quint64, quint64 connection, QByteArray bytes) {
                         ToolOutput::Out(Describe(bytes) + "\n", 0);
                         std::unique_ptr<CommCommand> request(CommandBuilder::BytearrayToCommand(bytes));
                         ResultCommand result;
                         if (request) {
                             result.GetRequestCommandInfo(*request);
                         }
                         const bool refuse = request &&
                                             request->getCommandType() == CommandTypes::kExecuteTrigger &&
                                             refused.contains(request->getPlanUuid());
                         result.setUintResult(refuse ? 1 : 0);
                         server.SendResult(connection, CommandBuilder::CommandToBytearray(&result));
                     });
    ToolOutput::Fail(QString("orvelctl agent: listening on %1:%2").arg(host).arg(server.serverPort()), 0);
    SignalBridge bridge([](int) { QCoreApplication::quit(); });
    return QCoreApplication::exec();
}
