#include "TriggerFire.h"

#include "FireState.h"
#include "JobTask.h"

TriggerFire::TriggerFire(QObject* parent) : QObject(parent) {}

TriggerFire::~TriggerFire() {
    m_triggerObject = nullptr;
}

void TriggerFire::SetTriggerObject(TriggerObject* object) {
    m_triggerObject = object;
}

TriggerObject* TriggerFire::GetTriggerObject() {
    return m_triggerObject;
}

quint64 TriggerFire::Start() {
    return FireState::kFinished;
}

void TriggerFire::Stop() {}

bool TriggerFire::NowFire(TriggerObject* object) {
    if (object == nullptr) {
        return false;
    }
    return JobTask::FireJob(object);
}
