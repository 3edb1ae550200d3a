#pragma once

#include "IRegistrarTypeManager.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>

class IQorRegistrar;

// Maps operation type names to their builders; a process-wide single instance,
// never destroyed.
class RegistrarTypeManager : public IRegistrarTypeManager {
public:
    static RegistrarTypeManager* instance();

    int Register(const QString& typeName, IRegistrarBuilder* builder) override;
    IQorRegistrar* CreateRegistrar(const QString& typeName);
    IQorRegistrar* CreateRegistrar(const QString& typeName, const QByteArray& data);
    void DestroyRegistrar(IQorRegistrar* object);

    virtual ~RegistrarTypeManager() = default;

private:
    RegistrarTypeManager() = default;

    QHash<QString, IRegistrarBuilder*> m_builders;
    QMutex m_mutex;
};
