#pragma once

#include <QDataStream>

// Base of every payload record that travels inside a request command.
class CommandObj {
public:
    virtual ~CommandObj() = default;
    virtual void Read(QDataStream& in) = 0;
    virtual void Write(QDataStream& out) const = 0;
};
