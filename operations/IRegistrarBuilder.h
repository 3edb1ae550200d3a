#pragma once

#include <QString>

class IQorRegistrar;

// Creates and destroys the objects of one type name.
class IRegistrarBuilder {
public:
    virtual IQorRegistrar* Create() = 0;
    virtual void Destroy(IQorRegistrar* object) = 0;
    virtual QString getTypeName() const { return m_typeName; }

protected:
    ~IRegistrarBuilder() = default;

private:
    QString m_typeName;
};
