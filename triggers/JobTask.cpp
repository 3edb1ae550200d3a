#include "JobTask.h"

#include "TriggerObject.h"
#include "framework/WireFormat.h"

#include "framework/ClientCommunManager.h"
#include "framework/CommandBuilder.h"
#include "framework/ConfigReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"

#include <memory>

namespace {
std::shared_ptr<const JobTask::HandedRecorder> g_handedRecorder;
} // namespace

void JobTask::SetHandedRecorder(HandedRecorder recorder) {
    std::atomic_store(&g_handedRecorder,
                      recorder ? std::make_shared<const HandedRecorder>(std::move(recorder)) : nullptr);
}

bool JobTask::FireJob(TriggerObject* object) {
    return SendCopy(object, CommandTypes::kExecuteTrigger);
}

bool JobTask::ReportTriggerInfo(TriggerObject* object) {
    return SendCopy(object, CommandTypes::kTriggerInfo);
}

bool JobTask::SendCopy(TriggerObject* object, quint64 commandType) {
    if (object == nullptr) {
        return false;
    }
    return SendTriggerCommand(new TriggerObject(*object), commandType);
}

bool JobTask::SendTriggerCommand(TriggerObject* copy, quint64 commandType) {
    std::unique_ptr<TriggerObject> owned(copy);
    if (!owned || commandType == CommandTypes::kResult) {
        return false;
    }
    std::unique_ptr<CommCommand> built(CommandBuilder::BuilderCommand(commandType));
    auto* command = static_cast<RequestCommand*>(built.get());
    if (command == nullptr) {
        return false;
    }
    command->setPlanUuid(owned->getPlanUuid());
    CommunAttribute& attribute = command->getObjectCommunAttribute();
    attribute.setProtocolType(ProtocolTypes::kTcp);
    attribute.setDestSvrNameIp(ConfigReader::getAgentLocalServerName());
    attribute.setDestPort(0);
    command->setTriggerFlag(1);
    command->setTriggerType(owned->getObjectTriggerAttribute().getTriggerType());
    RequestTriggerExecuteInfoData data;
    data.setNextStartTime(owned->getNextStartTime());
    data.setTriggerEndFlag(owned->getObjectTriggerAttribute().getTriggerEndFlag());
    CommandBuilder::DataToBytearray(&data, command->getRfrnRequestData());
    if (!ClientCommunManager::RequestCommunCommand(std::move(built))) {
        return false;
    }
    if (const auto recorder = std::atomic_load(&g_handedRecorder)) {
        (*recorder)(*owned, commandType);
    }
    return true;
}
