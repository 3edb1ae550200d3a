#include "FiringContext.h"

#include "framework/ConfigReader.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/WireFormat.h"
#include "store/RunStateRecorder.h"
#include "triggers/FireHost.h"
#include "triggers/TriggerObject.h"

bool FiringContext::IsTimerMode() {
    return ConfigReader::getDateTimeFireType() == 1;
}

void FiringContext::EndTrigger(TriggerObject* object, const QString& fireClass) {
    object->getObjectTriggerAttribute().setTriggerEndFlag(1);
    if (runState != nullptr) {
        runState->RecordNow(object->getPlanUuid(), RunHistory::Outcome::Ended, false);
    }
    if (!host.Send(*object, CommandTypes::kTriggerInfo)) {
        Logger::Error(QString("The %1 of scheduler[%2] request update trigger end info error.")
                          .arg(fireClass, LogText::Outside(object->getPlanUuid())));
    }
    Logger::Info(QString("The %1 of scheduler[%2] trigger execution finished.")
                     .arg(fireClass, LogText::Outside(object->getPlanUuid())));
}

void FiringContext::NoteRun(const QString& planUuid) {
    if (catchUp != nullptr) {
        catchUp->NoteRun(planUuid);
    }
}
