#include "SchedulerMemoryObjects.h"

#include "triggers/TriggerObject.h"

#include <atomic>

QMutex SchedulerMemoryObjects::s_creationMutex;
QHash<QString, TriggerObject*>* SchedulerMemoryObjects::s_registry = nullptr;
QMutex SchedulerMemoryObjects::s_registryMutex;

namespace {
// Read without the creation mutex on the fast path, hence atomic.
std::atomic<SchedulerMemoryObjects*> g_instance{nullptr};
} // namespace

// The singleton exists before main runs.
[[maybe_unused]] SchedulerMemoryObjects* const g_eagerInstance = SchedulerMemoryObjects::GetInstance();

SchedulerMemoryObjects* SchedulerMemoryObjects::GetInstance() {
    SchedulerMemoryObjects* instance = g_instance.load(std::memory_order_acquire);
    if (instance != nullptr) {
        return instance;
    }
    QMutexLocker locker(&s_creationMutex);
    instance = g_instance.load(std::memory_order_relaxed);
    if (instance == nullptr) {
        instance = new SchedulerMemoryObjects();
        g_instance.store(instance, std::memory_order_release);
    }
    return instance;
}

bool SchedulerMemoryObjects::Init() {
    QMutexLocker locker(&s_registryMutex);
    s_registry = new QHash<QString, TriggerObject*>();
    return s_registry != nullptr;
}

void SchedulerMemoryObjects::UnInit() {
    ClearTriggerObjects();
    {
        QMutexLocker locker(&s_registryMutex);
        delete s_registry;
        s_registry = nullptr;
    }
    QMutexLocker locker(&s_creationMutex);
    delete g_instance.exchange(nullptr, std::memory_order_acq_rel);
}

bool SchedulerMemoryObjects::InsertTriggerObject(const QString& planUuid, TriggerObject* object) {
    if (planUuid.isEmpty() || object == nullptr) {
        return false;
    }
    QMutexLocker locker(&s_registryMutex);
    if (s_registry == nullptr || s_registry->contains(planUuid)) {
        return false;
    }
    s_registry->insert(planUuid, object);
    return true;
}

TriggerObject* SchedulerMemoryObjects::FindTriggerObject(const QString& planUuid) {
    QMutexLocker locker(&s_registryMutex);
    if (s_registry == nullptr || s_registry->isEmpty()) {
        return nullptr;
    }
    return s_registry->value(planUuid, nullptr);
}

TriggerObject* SchedulerMemoryObjects::TakeTriggerObject(const QString& planUuid) {
    QMutexLocker locker(&s_registryMutex);
    if (s_registry == nullptr || s_registry->isEmpty()) {
        return nullptr;
    }
    return s_registry->take(planUuid);
}

void SchedulerMemoryObjects::ClearTriggerObjects() {
    QMutexLocker locker(&s_registryMutex);
    if (s_registry == nullptr) {
        return;
    }
    qDeleteAll(*s_registry);
    s_registry->clear();
}

QHash<QString, TriggerObject*>* SchedulerMemoryObjects::GetTriggerObjectHash() {
    return s_registry;
}

QMutex* SchedulerMemoryObjects::GetTriggerObjectMutex() {
    return &s_registryMutex;
}
