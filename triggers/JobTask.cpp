#include "JobTask.h"

#include "FireState.h"
#include "TriggerObject.h"

#include "framework/ClientCommunManager.h"
#include "framework/CommandBuilder.h"
#include "framework/ConfigReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"

#include <memory>

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
    if (!owned) {
        return false;
    }
    auto* command = static_cast<RequestCommand*>(CommandBuilder::BuilderCommand(commandType));
    if (command == nullptr || commandType == CommandTypes::kResult) {
        CommandBuilder::DestroyCommand(command);
        return false;
    }
    command->setPlanUuid(owned->getPlanUuid());
    CommunAttribute& attribute = command->getObjectCommunAttribute();
    attribute.setProtocolType(2);
    attribute.setDestSvrNameIp(ConfigReader::getAgentLocalServerName());
    attribute.setDestPort(0);
    command->setTriggerFlag(1);
    command->setTriggerType(owned->getObjectTriggerAttribute().getTriggerType());
    RequestTriggerExecuteInfoData data;
    data.setNextStartTime(owned->getNextStartTime());
    data.setTriggerEndFlag(owned->getObjectTriggerAttribute().getTriggerEndFlag());
    CommandBuilder::DataToBytearray(&data, command->getRfrnRequestData());
    owned.reset();
    const bool ok = ClientCommunManager::RequestCommunCommand(command);
    if (!ok) {
        CommandBuilder::DestroyCommand(command);
    }
    return ok;
}
