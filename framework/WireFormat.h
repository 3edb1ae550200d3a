#pragma once

#include <QDataStream>

// Every record and command of the wire and of stored blobs is streamed at this
// one version, so that peers built against later Qt releases still agree.
namespace WireFormat {
constexpr int kStreamVersion = QDataStream::Qt_5_6;
// A frame is a 32-bit big-endian payload length followed by the payload.
constexpr quint32 kMaxFramePayload = 1024 * 1024;
} // namespace WireFormat
