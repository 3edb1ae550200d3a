#pragma once

#include "DeadlineTimer.h"

#include <QElapsedTimer>
#include <QObject>

#include <memory>
#include <vector>

class QSocketNotifier;

// One queue per thread for every DeadlineTimer of that thread: a binary
// min-heap of wall-clock due instants, so arming, re-arming and stopping a
// timer cost O(log N), served by a single wake-up armed for the earliest.
//
// The wake-up is a timerfd rather than a Qt timer: a Qt timer's wait is whole
// milliseconds, measured from a truncated "now" and rounded up again by the
// event loop's poll, which makes a run up to two milliseconds late; the timerfd
// is armed to the microsecond of the due instant.
//
// It runs on the monotonic clock, which stops while the machine
// sleeps and ignores steps of the wall clock. So the queue never sleeps more
// than kMaxSleepMSecs without reading the wall clock again, and re-evaluates
// the head on every wake: what became due fires at once (each timer once,
// however many of its intervals were passed over), a head that moved away is
// waited for again. Recheck() does the same at once, for whoever learns that
// the clock moved (a resume from sleep, a clock step, a test).
class DeadlineQueue : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 kMaxSleepMSecs = 60000;
    // A difference between the wall and the monotonic clock above this, over
    // one sleep, counts as a step rather than drift.
    static constexpr qint64 kStepToleranceMSecs = 1000;

    static DeadlineQueue& ForCurrentThread();
    ~DeadlineQueue() override;

    void Schedule(DeadlineTimer* timer, qint64 dueMSecs);
    void Cancel(DeadlineTimer* timer);
    // The due instant of a timer in this queue.
    qint64 DueOf(const DeadlineTimer* timer) const { return m_heap[timer->m_heapIndex].dueMSecs; }
    std::size_t size() const { return m_heap.size(); }
    // Due instant of the earliest timer; 0 when there is none.
    qint64 headDueMSecs() const;
    // How long the queue sleeps before it reads the wall clock again; -1 when
    // it has nothing to wait for.
    qint64 sleepMSecs() const;

public Q_SLOTS:
    void Recheck();

private:
    struct Entry {
        qint64 dueMSecs;
        DeadlineTimer* timer;
    };

    DeadlineQueue();
    void Place(std::size_t index);
    void SiftUp(std::size_t index);
    void SiftDown(std::size_t index);
    void Swap(std::size_t a, std::size_t b);
    void RemoveAt(std::size_t index);
    // Reads the wall clock, notes a step since the last look, and arms the
    // wake-up for the head.
    void LookAndArm(bool wasEmpty);
    void ArmWake(qint64 nowUSecs);
    void onWake();
    void TakeBaseline(qint64 wallMSecs);
    // Logs a move of the wall clock against the monotonic clock since the
    // queue last looked: a step either way, or a sleep.
    void NoticeStep(qint64 wallMSecs);

    std::vector<Entry> m_heap;
    int m_wakeFd = -1;
    std::unique_ptr<QSocketNotifier> m_wakeNotifier;
    QElapsedTimer m_monotonic;
    qint64 m_lookedWallMSecs = 0;
    qint64 m_lookedMonotonicMSecs = 0;
    bool m_expiring = false;
    // The timers whose time-outs are being delivered, so that one stopped or
    // destroyed by an earlier time-out of the same wake is skipped.
    std::vector<Entry>* m_inTimeouts = nullptr;
};
