#include "AgentStandIn.h"

#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/ResultCommand.h"

#include <QTest>

#include <memory>

AgentStandIn::AgentStandIn(ReservedPort& port) {
    m_server.StartOnDescriptor(port.Listen());
    Answer();
}

AgentStandIn::AgentStandIn(quint16 port) {
    m_server.Start("127.0.0.1", port);
    Answer();
}

void AgentStandIn::Answer() {
    QObject::connect(
        &m_server, &CommunServer::incomingBlockData, &m_server,
        [this](quint64, quint64 connection, QByteArray bytes) {
            std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
            if (!command) {
                return;
            }
            m_received << QString("%1 %2").arg(command->getCommandType()).arg(command->getPlanUuid());
            const quint64 type = command->getCommandType();
            if (type == 600 || type == 601) {
                RequestTriggerExecuteInfoData data;
                CommandBuilder::BytearrayToData(
                    static_cast<RequestCommand*>(command.get())->getRfrnRequestData(), &data);
                (type == 600 ? m_dueStarts : m_reportedStarts)[command->getPlanUuid()]
                    << data.getNextStartTime();
            }
            if (type == 600) {
                m_runConnections << connection;
            }
            ResultCommand result;
            result.GetRequestCommandInfo(*command);
            m_server.SendResult(connection, CommandBuilder::CommandToBytearray(&result));
        });
}

int AgentStandIn::CountOf(quint64 type, const QString& planUuid) const {
    return m_received.count(QString("%1 %2").arg(type).arg(planUuid));
}

bool AgentStandIn::WaitFor(quint64 type, const QString& planUuid, int timeoutMSecs) {
    return QTest::qWaitFor([&] { return CountOf(type, planUuid) > 0; }, timeoutMSecs);
}
