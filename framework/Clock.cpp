#include "Clock.h"

#include <atomic>
#include <ctime>

namespace {
std::atomic<qint64> g_offsetMSecs{0};
}

QDateTime Clock::now() {
    return QDateTime::fromMSecsSinceEpoch(nowMSecsSinceEpoch());
}

qint64 Clock::nowMSecsSinceEpoch() {
    return QDateTime::currentMSecsSinceEpoch() + g_offsetMSecs.load(std::memory_order_relaxed);
}

void Clock::setOffsetMSecs(qint64 offset) {
    g_offsetMSecs.store(offset, std::memory_order_relaxed);
}

void Clock::shiftTo(const QDateTime& target) {
    setOffsetMSecs(target.toMSecsSinceEpoch() - QDateTime::currentMSecsSinceEpoch());
}

void Clock::reset() {
    setOffsetMSecs(0);
}

void Clock::PinLocalTimeZone() {
    if (qEnvironmentVariableIsSet("TZ")) {
        return;
    }
    qputenv("TZ", ":/etc/localtime");
    tzset();
}
