#pragma once

#include <QtGlobal>

// Result of a fire's Start and of SeekNextStartTime.
namespace FireState {
constexpr quint64 kError = 1;
constexpr quint64 kFinished = 2;
constexpr quint64 kScheduled = 3;
} // namespace FireState

// What getFireKind() returns: 0 for the plain base.
namespace FireKinds {
constexpr quint8 kDateTime = 1;
constexpr quint8 kEvent = 2;
} // namespace FireKinds

namespace TriggerTypes {
constexpr quint64 kOnce = 1;
constexpr quint64 kDaily = 2;
constexpr quint64 kWeekly = 3;
constexpr quint64 kMonthly = 4;
constexpr quint64 kFirstEvent = 256;
constexpr quint64 kLogon = 257;
constexpr quint64 kLogoff = 258;
constexpr quint64 kLock = 259;
constexpr quint64 kUnlock = 260;
constexpr quint64 kLastEvent = 261;

inline bool IsDateTime(quint64 type) {
    return type >= kOnce && type <= kMonthly;
}
inline bool IsEvent(quint64 type) {
    return type >= kFirstEvent && type <= kLastEvent;
}
} // namespace TriggerTypes
