#include "DeadlineTimer.h"

#include "DeadlineQueue.h"
#include "framework/Clock.h"

DeadlineTimer::~DeadlineTimer() {
    stop();
}

void DeadlineTimer::start(qint64 wait) {
    startAt(Clock::nowMSecsSinceEpoch() + wait, wait);
}

void DeadlineTimer::startAt(qint64 dueMSecs, qint64 interval) {
    m_interval = qMax<qint64>(1, interval);
    DeadlineQueue::ForCurrentThread().Schedule(this, dueMSecs);
}

void DeadlineTimer::stop() {
    if (isActive()) {
        DeadlineQueue::ForCurrentThread().Cancel(this);
    }
}

qint64 DeadlineTimer::dueMSecs() const {
    return isActive() ? DeadlineQueue::ForCurrentThread().DueOf(this) : 0;
}
