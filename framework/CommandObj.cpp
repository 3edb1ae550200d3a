#include "CommandObj.h"

#include "WireFormat.h"
#include "WireWriter.h"

void CommandObj::AppendTo(WireWriter& out) const {
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(WireFormat::kStreamVersion);
    Write(stream);
    out.AppendRaw(bytes);
}
