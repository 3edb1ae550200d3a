#pragma once

#include "framework/DatabaseFunctionOperation.h"
#include "triggers/FingerprintFill.h"

#include <QHash>
#include <QMutex>
#include <QString>

class CommCommand;
class RunStateRecorder;
class ResultCommand;
class TriggerObject;

// Keeps the trigger store: loads the stored triggers into the registry at
// start-up, and creates, updates and removes trigger objects for plan commands.
class SchedulerDataStoreManager {
public:
    virtual ~SchedulerDataStoreManager() = default;

    bool Init(const QString& dbFile);
    bool Start();
    void Stop();
    void UnInit();
    // The error line of a failed Init that found a database it cannot use;
    // empty otherwise.
    QString getFailure() const { return m_failure; }
    // The loaded objects get their definitions' digests while the start-up
    // goes on; nothing may read them before this has returned.
    void AwaitFingerprints() { m_fingerprints.Wait(); }

    static TriggerObject* GetTriggerObject(const QString& planUuid);
    static TriggerObject* AddTriggerObject(CommCommand* request);
    static TriggerObject* ModifyTriggerObject(CommCommand* request);
    // The plan's removal goes to `runState`, when there is one.
    static bool DeleteTriggerObject(const QString& planUuid, ResultCommand* result,
                                    RunStateRecorder* runState);
    static QHash<QString, TriggerObject*>* GetTriggerObjectHash();
    static QMutex* GetTriggerObjectMutex();

private:
    bool LoadDatabaseTriggerObjects();
    bool Unusable(const QString& dbFile, const char* check);

    QString m_failure;
    FingerprintFill m_fingerprints;

    static DatabaseFunctionOperation m_databaseOperation;
};
