#include "ResultCommand.h"

void ResultCommand::GetRequestCommandInfo(const CommCommand& request) {
    setPlanUuid(request.getPlanUuid());
    setTraceFlag(request.getTraceFlag());
    setTriggerFlag(request.getTriggerFlag());
    setTriggerType(request.getTriggerType());
    getObjectCommunAttribute() = request.getObjectCommunAttribute();
    m_requestCommandType = request.getCommandType();
}
