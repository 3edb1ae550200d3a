#pragma once

#include <QString>

class IRegistrarBuilder;

class IRegistrarTypeManager {
public:
    virtual int Register(const QString& typeName, IRegistrarBuilder* builder) = 0;

protected:
    ~IRegistrarTypeManager() = default;
};
