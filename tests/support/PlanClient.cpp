#include "PlanClient.h"

#include "framework/CommandBuilder.h"
#include "framework/FrameReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"

#include <QTest>

#include <memory>

namespace {
QByteArray Encode(quint64 type, const QString& planUuid, const CommandObj* payload) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(type));
    command->setPlanUuid(planUuid);
    if (payload != nullptr) {
        CommandBuilder::DataToBytearray(payload,
                                        static_cast<RequestCommand*>(command.get())->getRfrnRequestData());
    }
    return FrameReader::Frame(CommandBuilder::CommandToBytearray(command.get()));
}
} // namespace

PlanClient::PlanClient(quint16 port, bool waitForConnection) {
    m_socket.connectToHost("127.0.0.1", port);
    if (waitForConnection) {
        [[maybe_unused]] const bool connected = QTest::qWaitFor([this] { return isConnected(); }, 10000);
    }
}

void PlanClient::SendRaw(const QByteArray& bytes) {
    m_socket.write(bytes);
    m_socket.flush();
}

QByteArray PlanClient::NewPlanCommand(const QString& planUuid, const TriggerAttribute& attribute) {
    RequestNewOperationData data;
    data.setTriggerAttribute(attribute);
    return Encode(200, planUuid, &data);
}

void PlanClient::SendNewPlan(const QString& planUuid, const TriggerAttribute& attribute) {
    SendRaw(NewPlanCommand(planUuid, attribute));
}

void PlanClient::SendModifyPlan(const QString& planUuid, const TriggerAttribute& attribute) {
    SchedulerPlanData data;
    data.getRfrnSchedulerPlan().setPlanUuid(planUuid);
    data.getRfrnSchedulerPlan().getObjectTriggerAttribute() = attribute;
    SendRaw(Encode(204, planUuid, &data));
}

void PlanClient::SendDeletePlan(const QString& planUuid) {
    SendRaw(Encode(203, planUuid, nullptr));
}

void PlanClient::SendCommand(quint64 type, const QString& planUuid) {
    SendRaw(Encode(type, planUuid, nullptr));
}

int PlanClient::NextResult(int timeoutMSecs) {
    FrameReader reader;
    reader.Append(m_buffer);
    m_buffer.clear();
    QByteArray payload;
    const bool got = QTest::qWaitFor(
        [&] {
            reader.Append(m_socket.readAll());
            return reader.Next(payload);
        },
        timeoutMSecs);
    QByteArray rest;
    while (reader.Next(rest)) {
        m_buffer += FrameReader::Frame(rest);
    }
    if (!got) {
        return -1;
    }
    std::unique_ptr<CommCommand> reply(CommandBuilder::BytearrayToCommand(payload));
    auto* result = dynamic_cast<ResultCommand*>(reply.get());
    return result != nullptr ? static_cast<int>(result->getUintResult()) : -1;
}
