#include "EventerFire.h"

#include "FireState.h"
#include "TriggerObject.h"

EventerFire::EventerFire(QObject* parent) : TriggerFire(parent) {
    setFireKind(2);
}

void EventerFire::SetTriggerObject(TriggerObject* object) {
    TriggerFire::SetTriggerObject(object);
    if (object != nullptr) {
        m_planUuid = object->getPlanUuid();
    }
}

quint64 EventerFire::Start() {
    return FireState::kScheduled;
}

void EventerFire::Stop() {}
