#include "TriggerFire.h"

#include "FireHost.h"
#include "FireState.h"
#include "JobTask.h"
#include "framework/WireFormat.h"

#include <QObject>
#include <QThread>

TriggerFire::~TriggerFire() {
    m_triggerObject = nullptr;
}

void TriggerFire::SetTriggerObject(TriggerObject* object) {
    m_triggerObject = object;
}

TriggerObject* TriggerFire::GetTriggerObject() {
    return m_triggerObject;
}

QObject* TriggerFire::home() const {
    return m_host != nullptr ? m_host->FireHome() : nullptr;
}

bool TriggerFire::OnHomeThread() const {
    const QObject* object = home();
    return object == nullptr || object->thread() == QThread::currentThread();
}

quint64 TriggerFire::Start() {
    return FireState::kFinished;
}

void TriggerFire::Stop() {}

bool TriggerFire::NowFire(TriggerObject* object) {
    return Send(object, CommandTypes::kExecuteTrigger);
}

bool TriggerFire::Send(TriggerObject* object, quint64 commandType) const {
    if (object == nullptr) {
        return false;
    }
    return m_host != nullptr ? m_host->Send(*object, commandType) : JobTask::Send(*object, commandType);
}
