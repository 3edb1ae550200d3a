#pragma once

#include <QHash>
#include <QMutex>
#include <QString>

class TriggerObject;

// The process-wide registry of trigger objects, one per plan UUID. All state
// is class-wide; the instance only gives it a handle.
class SchedulerMemoryObjects {
public:
    virtual ~SchedulerMemoryObjects() = default;

    static SchedulerMemoryObjects* GetInstance();

    bool Init();
    void UnInit();
    bool InsertTriggerObject(const QString& planUuid, TriggerObject* object);
    TriggerObject* FindTriggerObject(const QString& planUuid);
    TriggerObject* TakeTriggerObject(const QString& planUuid);
    void ClearTriggerObjects();
    // For walks over the whole registry: lock GetTriggerObjectMutex() first
    // and hold it for the whole walk.
    QHash<QString, TriggerObject*>* GetTriggerObjectHash();
    QMutex* GetTriggerObjectMutex();

private:
    static QMutex s_creationMutex;
    static QHash<QString, TriggerObject*>* s_registry;
    static QMutex s_registryMutex;
};

#define INSTANCE_SCHEDULER_MEMORY_OBJECTS SchedulerMemoryObjects::GetInstance()
