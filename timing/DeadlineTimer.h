#pragma once

#include <QtGlobal>

#include <cstddef>

class DeadlineQueue;

// A repeating timer on the wall clock (`Clock`), served by its thread's
// DeadlineQueue: it expires when the wall clock reaches its due instant, then
// every interval after that until it is stopped. Unlike a QTimer it is not
// measured on the monotonic clock, so a suspend or a clock step cannot shift
// it, and its wait has no 24.8-day ceiling. Started, stopped and destroyed on
// one thread only.
class DeadlineTimer {
public:
    // Called with the owner and the due instant that expired, which lies in
    // the past by more than the usual moment when a step or a sleep passed
    // over it. A plain function and its owner rather than a std::function:
    // each of a million timer-mode fires holds a timer, and a std::function
    // would be twice the size.
    using Expiry = void (*)(void* owner, qint64 expiredDueMSecs);

    DeadlineTimer(Expiry expiry, void* owner) : m_expiry(expiry), m_owner(owner) {}
    ~DeadlineTimer();
    DeadlineTimer(const DeadlineTimer&) = delete;
    DeadlineTimer& operator=(const DeadlineTimer&) = delete;

    // Expires `wait` ms from now, then every `wait` ms.
    void start(qint64 wait);
    // Expires at `dueMSecs` (ms since the epoch on the wall clock), then every
    // `interval` ms (at least 1).
    void startAt(qint64 dueMSecs, qint64 interval);
    void stop();
    bool isActive() const { return m_queue != nullptr; }
    qint64 interval() const { return m_interval; }
    qint64 dueMSecs() const { return m_dueMSecs; }

private:
    friend class DeadlineQueue;

    Expiry m_expiry;
    void* m_owner;
    DeadlineQueue* m_queue = nullptr;
    std::size_t m_heapIndex = 0;
    qint64 m_dueMSecs = 0;
    qint64 m_interval = 0;
};
