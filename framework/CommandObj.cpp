#include "CommandObj.h"

#include "WireFormat.h"
#include "WireWriter.h"

void CommandObj::AppendTo(WireWriter& out) const {
    QDataStream stream(&out.bytes(), QIODevice::WriteOnly | QIODevice::Append);
    stream.setVersion(WireFormat::kStreamVersion);
    Write(stream);
}
