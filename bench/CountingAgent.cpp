#include "CountingAgent.h"

#include "ScalePlans.h"

#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/ResultCommand.h"

#include <memory>

CountingAgent::CountingAgent(qintptr descriptor, int plans) : m_reported(static_cast<size_t>(plans), 0) {
    moveToThread(&m_thread);
    m_thread.start();
    QMetaObject::invokeMethod(
        this, [this, descriptor] { Listen(descriptor); }, Qt::BlockingQueuedConnection);
}

CountingAgent::~CountingAgent() {
    QMetaObject::invokeMethod(
        this, [this] { delete m_server; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

void CountingAgent::Listen(qintptr descriptor) {
    m_server = new CommunServer();
    m_server->StartOnDescriptor(descriptor);
    connect(m_server, &CommunServer::incomingBlockData, this,
            [this](quint64, quint64 connection, QByteArray bytes) { OnBlock(connection, bytes); });
}

void CountingAgent::OnBlock(quint64 connection, const QByteArray& bytes) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
    if (!command) {
        return;
    }
    ++m_commands;
    ResultCommand result;
    result.GetRequestCommandInfo(*command);
    m_server->SendResult(connection, CommandBuilder::CommandToBytearray(&result));
    if (command->getCommandType() != 601) {
        return;
    }
    const int index = ScalePlans::IndexOf(command->getPlanUuid());
    if (index < 0 || index >= static_cast<int>(m_reported.size()) || m_reported[static_cast<size_t>(index)]) {
        return;
    }
    m_reported[static_cast<size_t>(index)] = 1;
    ++m_reportedPlans;
    m_lastReport = Steady::now().time_since_epoch().count();
}
