#include "CTestBackupOperationBuilder.h"

#include "CTestBackupOperation.h"
#include "RegistrarTypeManager.h"

#include <QMutex>

namespace {
QMutex g_creationMutex;
CTestBackupOperationBuilder* g_instance = nullptr;
} // namespace

CTestBackupOperationBuilder* CTestBackupOperationBuilder::instance() {
    QMutexLocker locker(&g_creationMutex);
    if (g_instance == nullptr) {
        g_instance = new CTestBackupOperationBuilder();
    }
    return g_instance;
}

CTestBackupOperationBuilder::CTestBackupOperationBuilder() : m_typeName("BackupOperation") {
    RegistrarTypeManager::instance()->Register(m_typeName, this);
}

IQorRegistrar* CTestBackupOperationBuilder::Create() {
    return new CTestBackupOperation();
}

void CTestBackupOperationBuilder::Destroy(IQorRegistrar* object) {
    delete static_cast<CTestBackupOperation*>(object);
}

namespace {
// The registry holds "BackupOperation" before main runs.
[[maybe_unused]] CTestBackupOperationBuilder* const g_registered = CTestBackupOperationBuilder::instance();
} // namespace
