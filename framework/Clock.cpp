#include "Clock.h"

#include <atomic>
#include <ctime>

namespace {
std::atomic<qint64> g_offsetMSecs{0};
std::atomic<bool> g_frozen{false};
std::atomic<qint64> g_frozenMSecs{0};
} // namespace

QDateTime Clock::now() {
    return QDateTime::fromMSecsSinceEpoch(nowMSecsSinceEpoch());
}

qint64 Clock::nowMSecsSinceEpoch() {
    if (g_frozen.load(std::memory_order_acquire)) {
        return g_frozenMSecs.load(std::memory_order_relaxed);
    }
    return QDateTime::currentMSecsSinceEpoch() + g_offsetMSecs.load(std::memory_order_relaxed);
}

qint64 Clock::nowUSecsSinceEpoch() {
    if (g_frozen.load(std::memory_order_acquire)) {
        return g_frozenMSecs.load(std::memory_order_relaxed) * 1000;
    }
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<qint64>(now.tv_sec) * 1000000 + now.tv_nsec / 1000 +
           g_offsetMSecs.load(std::memory_order_relaxed) * 1000;
}

void Clock::setOffsetMSecs(qint64 offset) {
    g_offsetMSecs.store(offset, std::memory_order_relaxed);
}

void Clock::shiftTo(const QDateTime& target) {
    g_frozen.store(false, std::memory_order_release);
    setOffsetMSecs(target.toMSecsSinceEpoch() - QDateTime::currentMSecsSinceEpoch());
}

void Clock::freezeAt(const QDateTime& moment) {
    g_frozenMSecs.store(moment.toMSecsSinceEpoch(), std::memory_order_relaxed);
    g_frozen.store(true, std::memory_order_release);
}

void Clock::reset() {
    g_frozen.store(false, std::memory_order_release);
    setOffsetMSecs(0);
}

void Clock::PinLocalTimeZone() {
    if (qEnvironmentVariableIsSet("TZ")) {
        return;
    }
    qputenv("TZ", ":/etc/localtime");
    tzset();
}

// The C library reads the zone again only when the TZ text changes, so the
// pinned file is named by its other spelling, with or without a "./" before
// the file name.
void Clock::RereadLocalTimeZone() {
    QByteArray tz = qgetenv("TZ");
    if (!tz.startsWith(":/")) {
        return;
    }
    const int slash = tz.lastIndexOf('/');
    if (tz.mid(slash - 2, 3) == "/./") {
        tz.remove(slash - 1, 2);
    } else {
        tz.insert(slash + 1, "./");
    }
    qputenv("TZ", tz);
    tzset();
}

namespace {
qint64 ReadMSecs(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<qint64>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
} // namespace

qint64 Clock::sinceBootMSecs() {
    return ReadMSecs(CLOCK_BOOTTIME);
}

qint64 Clock::monotonicMSecs() {
    return ReadMSecs(CLOCK_MONOTONIC);
}
