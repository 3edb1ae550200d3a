#pragma once

#include <QDataStream>

// The constants of the suite's wire: how records are streamed and framed, and
// the numbers that name commands, transports and queued packages.

// Every record and command of the wire and of stored blobs is streamed at this
// one version, so that peers built against later Qt releases still agree.
namespace WireFormat {
constexpr int kStreamVersion = QDataStream::Qt_5_6;
// A frame is a 32-bit big-endian payload length followed by the payload.
constexpr quint32 kMaxFramePayload = 1024 * 1024;
} // namespace WireFormat

namespace CommandTypes {
constexpr quint64 kNewPlan = 200;
constexpr quint64 kDeletePlan = 203;
constexpr quint64 kModifyPlan = 204;
constexpr quint64 kExecuteTrigger = 600;
constexpr quint64 kTriggerInfo = 601;
constexpr quint64 kResult = 2000;
} // namespace CommandTypes

// Transport of an endpoint; TCP is the only one spoken.
namespace ProtocolTypes {
constexpr quint64 kTcp = 2;
} // namespace ProtocolTypes

// Communication type of a received block: 2 a request to this server, 3 a
// block of the client side.
namespace CommTypes {
constexpr quint64 kServerRequest = 2;
constexpr quint64 kClient = 3;
} // namespace CommTypes

// Type of a queued package, chosen from the communication type.
namespace PackageTypes {
constexpr quint64 kServerRequest = 3;
} // namespace PackageTypes
