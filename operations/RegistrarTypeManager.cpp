#include "RegistrarTypeManager.h"

#include "IQorRegistrar.h"
#include "IRegistrarBuilder.h"

#include <QIODevice>

namespace {
QMutex g_creationMutex;
RegistrarTypeManager* g_instance = nullptr;
// Restored operations are read at this stream version.
constexpr int kOperationStreamVersion = 16;
} // namespace

RegistrarTypeManager* RegistrarTypeManager::instance() {
    QMutexLocker locker(&g_creationMutex);
    if (g_instance == nullptr) {
        g_instance = new RegistrarTypeManager();
    }
    return g_instance;
}

int RegistrarTypeManager::Register(const QString& typeName, IRegistrarBuilder* builder) {
    if (builder == nullptr) {
        return 0;
    }
    QMutexLocker locker(&m_mutex);
    if (m_builders.contains(typeName)) {
        return 0;
    }
    m_builders.insert(typeName, builder);
    return 1;
}

IQorRegistrar* RegistrarTypeManager::CreateRegistrar(const QString& typeName) {
    if (typeName.isEmpty()) {
        return nullptr;
    }
    QMutexLocker locker(&m_mutex);
    IRegistrarBuilder* builder = m_builders.value(typeName, nullptr);
    return builder != nullptr ? builder->Create() : nullptr;
}

IQorRegistrar* RegistrarTypeManager::CreateRegistrar(const QString& typeName, const QByteArray& data) {
    IQorRegistrar* object = CreateRegistrar(typeName);
    if (object != nullptr) {
        QByteArray copy = data;
        QDataStream in(&copy, QIODevice::ReadOnly);
        in.setVersion(kOperationStreamVersion);
        object->ReadFromStream(in);
    }
    return object;
}

void RegistrarTypeManager::DestroyRegistrar(IQorRegistrar* object) {
    if (object == nullptr) {
        return;
    }
    QMutexLocker locker(&m_mutex);
    IRegistrarBuilder* builder = m_builders.value(object->getTypeName(), nullptr);
    if (builder != nullptr) {
        builder->Destroy(object);
    }
    // Without a builder the object cannot be destroyed through its own class;
    // the interfaces have no virtual destructor, so it is left alone.
}
