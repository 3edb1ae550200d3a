#include "DeadlineQueue.h"

#include "framework/Clock.h"
#include "framework/Logger.h"

#include <QSocketNotifier>

#include <cerrno>

#include <memory>

#include <sys/timerfd.h>
#include <unistd.h>

namespace {
// Owned by the thread: destroyed when the thread ends, detaching what is left.
thread_local std::unique_ptr<DeadlineQueue> t_queue;
} // namespace

DeadlineQueue& DeadlineQueue::ForCurrentThread() {
    if (!t_queue) {
        t_queue.reset(new DeadlineQueue());
    }
    return *t_queue;
}

DeadlineQueue::DeadlineQueue() : m_wakeFd(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (m_wakeFd < 0) {
        Logger::Error(
            QString("The deadline queue cannot create its wake-up timer (errno %1); timer-mode runs "
                    "will not start.")
                .arg(errno));
    } else {
        m_wakeNotifier = std::make_unique<QSocketNotifier>(m_wakeFd, QSocketNotifier::Read);
        connect(m_wakeNotifier.get(), &QSocketNotifier::activated, this, &DeadlineQueue::onWake);
    }
    m_monotonic.start();
    TakeBaseline(Clock::nowMSecsSinceEpoch());
}

DeadlineQueue::~DeadlineQueue() {
    for (const Entry& entry : m_heap) {
        entry.timer->m_heapIndex = DeadlineTimer::kNotQueued;
    }
    m_wakeNotifier.reset();
    if (m_wakeFd >= 0) {
        ::close(m_wakeFd);
    }
}

qint64 DeadlineQueue::headDueMSecs() const {
    return m_heap.empty() ? 0 : m_heap.front().dueMSecs;
}

void DeadlineQueue::Schedule(DeadlineTimer* timer, qint64 dueMSecs) {
    const bool wasEmpty = m_heap.empty();
    const qint64 headBefore = headDueMSecs();
    if (timer->isActive()) {
        m_heap[timer->m_heapIndex].dueMSecs = dueMSecs;
        Place(timer->m_heapIndex);
    } else {
        timer->m_heapIndex = static_cast<quint32>(m_heap.size());
        m_heap.push_back({dueMSecs, timer});
        SiftUp(timer->m_heapIndex);
    }
    // Arming the wake-up is a system call, dearer than the heap; only a new
    // head needs it.
    if (m_expiring || (!wasEmpty && headDueMSecs() == headBefore)) {
        return;
    }
    LookAndArm(wasEmpty);
}

void DeadlineQueue::Cancel(DeadlineTimer* timer) {
    if (!timer->isActive()) {
        return;
    }
    if (m_inTimeouts != nullptr) {
        for (Entry& entry : *m_inTimeouts) {
            if (entry.timer == timer) {
                entry.timer = nullptr;
            }
        }
    }
    const bool wasHead = timer->m_heapIndex == 0;
    RemoveAt(timer->m_heapIndex);
    timer->m_heapIndex = DeadlineTimer::kNotQueued;
    if (wasHead && !m_expiring) {
        LookAndArm(false);
    }
}

void DeadlineQueue::RemoveAt(std::size_t index) {
    const std::size_t last = m_heap.size() - 1;
    if (index != last) {
        Swap(index, last);
    }
    m_heap.pop_back();
    if (index < m_heap.size()) {
        Place(index);
    }
}

void DeadlineQueue::Place(std::size_t index) {
    if (index > 0 && m_heap[index].dueMSecs < m_heap[(index - 1) / 2].dueMSecs) {
        SiftUp(index);
    } else {
        SiftDown(index);
    }
}

void DeadlineQueue::SiftUp(std::size_t index) {
    while (index > 0) {
        const std::size_t parent = (index - 1) / 2;
        if (!(m_heap[index].dueMSecs < m_heap[parent].dueMSecs)) {
            return;
        }
        Swap(index, parent);
        index = parent;
    }
}

void DeadlineQueue::SiftDown(std::size_t index) {
    const std::size_t size = m_heap.size();
    for (;;) {
        std::size_t smallest = index;
        for (std::size_t child = 2 * index + 1; child <= 2 * index + 2 && child < size; ++child) {
            if (m_heap[child].dueMSecs < m_heap[smallest].dueMSecs) {
                smallest = child;
            }
        }
        if (smallest == index) {
            return;
        }
        Swap(index, smallest);
        index = smallest;
    }
}

void DeadlineQueue::Swap(std::size_t a, std::size_t b) {
    std::swap(m_heap[a], m_heap[b]);
    m_heap[a].timer->m_heapIndex = static_cast<quint32>(a);
    m_heap[b].timer->m_heapIndex = static_cast<quint32>(b);
}

// An empty queue has not looked at the clock for a while, and the drift since
// then is no step.
void DeadlineQueue::LookAndArm(bool wasEmpty) {
    const qint64 nowUSecs = Clock::nowUSecsSinceEpoch();
    if (wasEmpty) {
        TakeBaseline(nowUSecs / 1000);
    } else {
        NoticeStep(nowUSecs / 1000);
    }
    ArmWake(nowUSecs);
}

// A zero it_value disarms a timerfd, so a head already due waits one
// nanosecond: the wake then comes from the event loop's next turn, as a
// zero-interval timer's would.
void DeadlineQueue::ArmWake(qint64 nowUSecs) {
    if (m_wakeFd < 0) {
        return;
    }
    itimerspec setting = {};
    if (!m_heap.empty()) {
        const qint64 waitUSecs =
            qBound<qint64>(0, m_heap.front().dueMSecs * 1000 - nowUSecs, kMaxSleepMSecs * 1000);
        setting.it_value.tv_sec = static_cast<time_t>(waitUSecs / 1000000);
        setting.it_value.tv_nsec = static_cast<long>(waitUSecs % 1000000 * 1000);
        if (waitUSecs == 0) {
            setting.it_value.tv_nsec = 1;
        }
    }
    ::timerfd_settime(m_wakeFd, 0, &setting, nullptr);
}

qint64 DeadlineQueue::sleepMSecs() const {
    itimerspec setting = {};
    if (m_wakeFd < 0 || ::timerfd_gettime(m_wakeFd, &setting) != 0 ||
        (setting.it_value.tv_sec == 0 && setting.it_value.tv_nsec == 0)) {
        return -1;
    }
    return static_cast<qint64>(setting.it_value.tv_sec) * 1000 + setting.it_value.tv_nsec / 1000000;
}

void DeadlineQueue::onWake() {
    quint64 expirations = 0;
    while (::read(m_wakeFd, &expirations, sizeof expirations) > 0) {
    }
    Recheck();
}

void DeadlineQueue::TakeBaseline(qint64 wallMSecs) {
    m_lookedWallMSecs = wallMSecs;
    m_lookedMonotonicMSecs = m_monotonic.elapsed();
}

void DeadlineQueue::NoticeStep(qint64 wallMSecs) {
    const qint64 expected = m_lookedWallMSecs + (m_monotonic.elapsed() - m_lookedMonotonicMSecs);
    const qint64 step = wallMSecs - expected;
    TakeBaseline(wallMSecs);
    if (step > kStepToleranceMSecs || step < -kStepToleranceMSecs) {
        Logger::Info(QString("The wall clock moved %1 ms against the monotonic clock (a clock step or a "
                             "sleep); due times are checked against the new time.")
                         .arg(step));
    }
}

void DeadlineQueue::Recheck() {
    const qint64 nowUSecs = Clock::nowUSecsSinceEpoch();
    const qint64 now = nowUSecs / 1000;
    NoticeStep(now);
    // Each due timer moves on past now before any expires, so it expires once
    // here whatever the step, and what the handlers do to the queue meanwhile
    // cannot make the walk run again.
    std::vector<Entry> expired;
    m_expiring = true;
    while (!m_heap.empty() && m_heap.front().dueMSecs <= now) {
        Entry& head = m_heap.front();
        DeadlineTimer* timer = head.timer;
        expired.push_back({head.dueMSecs, timer});
        const qint64 next = head.dueMSecs + timer->m_interval;
        head.dueMSecs = next > now ? next : now + timer->m_interval;
        SiftDown(0);
    }
    m_expiring = false;
    ArmWake(nowUSecs);
    m_inTimeouts = &expired;
    for (const Entry& entry : expired) {
        if (entry.timer != nullptr) {
            entry.timer->Expired(entry.dueMSecs);
        }
    }
    m_inTimeouts = nullptr;
}
