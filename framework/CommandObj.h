#pragma once

#include <QDataStream>

class WireWriter;

// Base of every payload record that travels inside a request command.
class CommandObj {
public:
    virtual ~CommandObj() = default;
    virtual void Read(QDataStream& in) = 0;
    virtual void Write(QDataStream& out) const = 0;
    // The bytes of Write, appended to the writer's array. A record sent often
    // writes straight to it; any other goes through a QDataStream, once for
    // the count and once for the bytes.
    virtual void AppendTo(WireWriter& out) const;
};
