#pragma once

#include <QtGlobal>

#include <cstddef>

class DeadlineQueue;

// A repeating timer on the wall clock (`Clock`), served by its thread's
// DeadlineQueue: it expires when the wall clock reaches its due instant, then
// every interval after that until it is stopped. Unlike a QTimer it is not
// measured on the monotonic clock, so a suspend or a clock step cannot shift
// it, and its wait has no 24.8-day ceiling. Started, stopped and destroyed on
// one thread only, whose queue it is in while it is active.
//
// The owner derives from it and is told of each expiry by a virtual call: a
// million timer-mode fires each hold a timer, and a function and an owner
// pointer, or a queue pointer, would each cost every one of them eight bytes.
class DeadlineTimer {
public:
    DeadlineTimer() = default;
    virtual ~DeadlineTimer();
    DeadlineTimer(const DeadlineTimer&) = delete;
    DeadlineTimer& operator=(const DeadlineTimer&) = delete;

    // Expires `wait` ms from now, then every `wait` ms.
    void start(qint64 wait);
    // Expires at `dueMSecs` (ms since the epoch on the wall clock), then every
    // `interval` ms (at least 1).
    void startAt(qint64 dueMSecs, qint64 interval);
    void stop();
    bool isActive() const { return m_heapIndex != kNotQueued; }
    qint64 interval() const { return m_interval; }
    // The instant it expires next; 0 while it is not active.
    qint64 dueMSecs() const;

protected:
    // Called with the due instant that expired, which lies in the past by more
    // than the usual moment when a step or a sleep passed over it.
    virtual void Expired(qint64 expiredDueMSecs) = 0;

private:
    friend class DeadlineQueue;
    static constexpr quint32 kNotQueued = 0xffffffffU;

    qint64 m_interval = 0;
    // Its place in its thread's queue; at most four billion timers a thread.
    quint32 m_heapIndex = kNotQueued;
};
