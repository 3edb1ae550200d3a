#pragma once

#include <QDataStream>
#include <QString>

// An object that has a type name and can be read from and written to a stream.
class IQorRegistrar {
public:
    virtual QString getTypeName() const = 0;
    virtual QDataStream& ReadFromStream(QDataStream& in) = 0;
    virtual QDataStream& WriteToStream(QDataStream& out) const = 0;

protected:
    ~IQorRegistrar() = default;
};
