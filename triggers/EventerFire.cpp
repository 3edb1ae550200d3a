#include "EventerFire.h"

#include "FireState.h"
#include "TriggerObject.h"

EventerFire::EventerFire() {
    setFireKind(FireKinds::kEvent);
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
