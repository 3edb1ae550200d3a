#include "SchedulerDataStoreManager.h"

#include "RunStateRecorder.h"
#include "SchedulerMemoryObjects.h"

#include "framework/CommandBuilder.h"
#include "framework/Logger.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"
#include "triggers/TriggerCheck.h"
#include "triggers/TriggerFingerprint.h"
#include "triggers/TriggerObject.h"

#include <QFileInfo>

#include <vector>

DatabaseFunctionOperation SchedulerDataStoreManager::m_databaseOperation;

namespace {
bool Fail(const char* check) {
    Logger::Debug(check);
    return false;
}

const QByteArray& Payload(CommCommand* request) {
    return static_cast<RequestCommand*>(request)->getRfrnRequestData();
}
} // namespace

bool SchedulerDataStoreManager::Init(const QString& dbFile) {
    m_failure.clear();
    if (dbFile.isEmpty()) {
        return Fail("dbfile.isEmpty");
    }
    if (!INSTANCE_SCHEDULER_MEMORY_OBJECTS->Init()) {
        return Fail("INSTANCE_SCHEDULER_MEMORY_OBJECTS->Init");
    }
    // Only a missing file means that no plan was stored yet: anything else at
    // the path that cannot be read is reported.
    if (!QFileInfo::exists(dbFile)) {
        return true;
    }
    if (!m_databaseOperation.Init(dbFile)) {
        return Unusable(dbFile, "m_databaseOperation.Init");
    }
    if (!LoadDatabaseTriggerObjects()) {
        return Unusable(dbFile, "LoadDatabaseTriggerObjects");
    }
    return true;
}

bool SchedulerDataStoreManager::Unusable(const QString& dbFile, const char* check) {
    const QString reason = m_databaseOperation.Failure();
    m_failure =
        QString("Cannot load the plans database %1: %2; the service runs without plans and accepts no "
                "commands.")
            .arg(dbFile, reason.isEmpty() ? QString("it cannot be read") : reason);
    Logger::Error(m_failure);
    return Fail(check);
}

bool SchedulerDataStoreManager::Start() {
    return true;
}

void SchedulerDataStoreManager::Stop() {}

void SchedulerDataStoreManager::UnInit() {
    m_fingerprints.Wait();
    m_databaseOperation.UnInit();
    INSTANCE_SCHEDULER_MEMORY_OBJECTS->UnInit();
}

bool SchedulerDataStoreManager::LoadDatabaseTriggerObjects() {
    QMutexLocker locker(GetTriggerObjectMutex());
    QHash<QString, TriggerObject*>* registry = GetTriggerObjectHash();
    if (registry == nullptr) {
        return false;
    }
    QHash<QString, TriggerAttribute*> attributes;
    if (!m_databaseOperation.LoadTriggerAttributes(attributes, &TriggerCheck::Fault)) {
        qDeleteAll(attributes);
        return false;
    }
    registry->reserve(registry->size() + attributes.size());
    std::vector<TriggerObject*> loaded;
    loaded.reserve(static_cast<size_t>(attributes.size()));
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it) {
        if (it.value() == nullptr) {
            continue;
        }
        TriggerObject*& registered = (*registry)[it.key()];
        if (registered == nullptr) {
            registered = new TriggerObject();
            registered->setPlanUuid(it.key());
            registered->setTriggerAttribute(*it.value());
            loaded.push_back(registered);
        }
        delete it.value();
    }
    m_fingerprints.Start(std::move(loaded));
    return true;
}

TriggerObject* SchedulerDataStoreManager::GetTriggerObject(const QString& planUuid) {
    if (planUuid.isEmpty()) {
        return nullptr;
    }
    return INSTANCE_SCHEDULER_MEMORY_OBJECTS->FindTriggerObject(planUuid);
}

TriggerObject* SchedulerDataStoreManager::AddTriggerObject(CommCommand* request) {
    if (request == nullptr || request->getPlanUuid().isEmpty()) {
        return nullptr;
    }
    RequestNewOperationData data;
    if (!CommandBuilder::BytearrayToData(Payload(request), &data)) {
        return nullptr;
    }
    auto* object = new TriggerObject(data);
    object->setPlanUuid(request->getPlanUuid());
    object->setDefinitionFingerprint(TriggerFingerprint::Of(object->getObjectTriggerAttribute()));
    if (!INSTANCE_SCHEDULER_MEMORY_OBJECTS->InsertTriggerObject(object->getPlanUuid(), object)) {
        delete object;
        return nullptr;
    }
    return object;
}

TriggerObject* SchedulerDataStoreManager::ModifyTriggerObject(CommCommand* request) {
    if (request == nullptr || request->getPlanUuid().isEmpty()) {
        return nullptr;
    }
    SchedulerPlanData data;
    if (!CommandBuilder::BytearrayToData(Payload(request), &data)) {
        return nullptr;
    }
    const QString planUuid = request->getPlanUuid();
    TriggerObject* object = INSTANCE_SCHEDULER_MEMORY_OBJECTS->FindTriggerObject(planUuid);
    if (object == nullptr) {
        object = new TriggerObject();
        if (!INSTANCE_SCHEDULER_MEMORY_OBJECTS->InsertTriggerObject(planUuid, object)) {
            delete object;
            return nullptr;
        }
    }
    const SchedulerPlan& plan = data.getRfrnSchedulerPlan();
    object->setPlanUuid(planUuid);
    object->setPlanName(plan.getPlanName());
    object->setTriggerAttribute(plan.getObjectTriggerAttribute());
    object->setRepeatCount(0);
    object->setStartOffsetSecs(0);
    object->setFirstSeekDone(0);
    object->setNextStartTime(QString());
    object->setFilledStartTime(QString());
    object->getObjectTriggerAttribute().setTriggerEndFlag(0);
    object->setDefinitionFingerprint(TriggerFingerprint::Of(object->getObjectTriggerAttribute()));
    return object;
}

bool SchedulerDataStoreManager::DeleteTriggerObject(const QString& planUuid, ResultCommand* result,
                                                    RunStateRecorder* runState) {
    if (result == nullptr) {
        return false;
    }
    if (planUuid.isEmpty() || INSTANCE_SCHEDULER_MEMORY_OBJECTS->FindTriggerObject(planUuid) == nullptr) {
        result->setUintResult(1);
        return false;
    }
    delete INSTANCE_SCHEDULER_MEMORY_OBJECTS->TakeTriggerObject(planUuid);
    if (runState != nullptr) {
        runState->RecordRemoval(planUuid);
        runState->RecordNow(planUuid, RunHistory::Outcome::Deleted, false);
    }
    result->setUintResult(0);
    return true;
}

QHash<QString, TriggerObject*>* SchedulerDataStoreManager::GetTriggerObjectHash() {
    return INSTANCE_SCHEDULER_MEMORY_OBJECTS->GetTriggerObjectHash();
}

QMutex* SchedulerDataStoreManager::GetTriggerObjectMutex() {
    return INSTANCE_SCHEDULER_MEMORY_OBJECTS->GetTriggerObjectMutex();
}
