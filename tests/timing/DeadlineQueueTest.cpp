// The wall-clock deadline queue, driven through the process clock: forward and
// backward steps, a "suspend" (the wall clock moves on while the monotonic wait
// has not run out), and the heap's order under arbitrary arming and stopping.
#include "support/ClockShift.h"
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "timing/DeadlineQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <vector>

namespace {
qint64 Ms(const char* text) {
    return At(text).toMSecsSinceEpoch();
}

// A timer that hands each due instant it expired for to a function.
struct CallingTimer : DeadlineTimer {
    explicit CallingTimer(std::function<void(qint64)> expiry) : expiry(std::move(expiry)) {}
    void Expired(qint64 due) override { expiry(due); }
    std::function<void(qint64)> expiry;
};

// A timer that records the due instants it expired for.
struct Recorder {
    std::vector<qint64> expired;
    CallingTimer timer{[this](qint64 due) { expired.push_back(due); }};
};

DeadlineQueue& Queue() {
    return DeadlineQueue::ForCurrentThread();
}

struct StepRow {
    const char* name;
    const char* movedTo;
    std::vector<size_t> fired; // indexes into the dues below
    bool stepNoticed;
};

// Armed at 08:00:00 for 08:05, 08:10 and 09:00, then the wall clock moves.
TEST(DeadlineQueue, ReevaluatesTheHeadWhenTheWallClockMoves) {
    const char* dues[] = {"2026-03-10 08:05:00", "2026-03-10 08:10:00", "2026-03-10 09:00:00"};
    const StepRow rows[] = {
        {"forward_over_one", "2026-03-10 08:06:00", {0}, true},
        {"forward_over_all", "2026-03-10 12:00:00", {0, 1, 2}, true},
        {"back", "2026-03-10 07:00:00", {}, true},
        {"not_moved", "2026-03-10 08:00:00", {}, false},
    };
    for (const StepRow& row : rows) {
        SCOPED_TRACE(row.name);
        ClockShift clock(At("2026-03-10 08:00:00"));
        std::vector<std::unique_ptr<Recorder>> timers;
        for (const char* due : dues) {
            timers.push_back(std::make_unique<Recorder>());
            timers.back()->timer.startAt(Ms(due), 3600000);
        }
        LogCapture log;
        clock.To(At(row.movedTo));
        Queue().Recheck();
        Queue().Recheck();
        for (size_t i = 0; i < timers.size(); ++i) {
            const bool fires = std::find(row.fired.begin(), row.fired.end(), i) != row.fired.end();
            // Passed over by hours, a timer still expires once, for its own due instant.
            EXPECT_EQ(timers[i]->expired, fires ? std::vector<qint64>{Ms(dues[i])} : std::vector<qint64>{});
        }
        EXPECT_EQ(log.CountContaining("The wall clock moved"), row.stepNoticed ? 1 : 0);
        // Whatever the step, the queue looks at the wall clock again within a minute.
        EXPECT_LE(Queue().sleepMSecs(), DeadlineQueue::kMaxSleepMSecs);
    }
}

// After a step back a timer waits for its instant on the new clock.
TEST(DeadlineQueue, AStepBackDelaysByTheStep) {
    ClockShift clock(At("2026-03-10 08:00:00"));
    Recorder every;
    every.timer.startAt(Ms("2026-03-10 08:01:00"), 60000);
    clock.To(At("2026-03-10 07:30:00"));
    Queue().Recheck();
    clock.To(At("2026-03-10 08:00:59.999"));
    Queue().Recheck();
    EXPECT_TRUE(every.expired.empty());
    clock.To(At("2026-03-10 08:01:00"));
    Queue().Recheck();
    EXPECT_EQ(every.expired, std::vector<qint64>{Ms("2026-03-10 08:01:00")});
    EXPECT_EQ(every.timer.dueMSecs(), Ms("2026-03-10 08:02:00"));
}

// A suspend: the wall clock runs on while the queue's monotonic sleep does
// not. The wake that follows (at most a minute later, or at once on resume)
// fires what came due, once.
TEST(DeadlineQueue, ASuspendFiresWhatCameDueOnce) {
    ClockShift clock(At("2026-03-10 22:00:00"));
    Recorder nightly;
    nightly.timer.startAt(Ms("2026-03-11 02:00:00"), 24 * 3600000LL);
    EXPECT_LE(Queue().sleepMSecs(), DeadlineQueue::kMaxSleepMSecs);
    clock.To(At("2026-03-11 07:00:00"));
    Queue().Recheck();
    EXPECT_EQ(nightly.expired, std::vector<qint64>{Ms("2026-03-11 02:00:00")});
    EXPECT_EQ(nightly.timer.dueMSecs(), Ms("2026-03-12 02:00:00"));
}

// Any sequence of arming, re-arming and stopping leaves the timers that are
// still armed expiring in the order of their due instants.
TEST(DeadlineQueue, ExpiresInDueOrderAfterArbitraryChanges) {
    ClockShift clock(At("2026-03-10 00:00:00"));
    const qint64 origin = Ms("2026-03-10 00:00:00");
    std::vector<qint64> order;
    std::vector<std::unique_ptr<CallingTimer>> timers;
    std::vector<qint64> due(500, -1);
    for (size_t i = 0; i < due.size(); ++i) {
        timers.push_back(std::make_unique<CallingTimer>([&order](qint64 d) { order.push_back(d); }));
    }
    std::mt19937 random(7);
    std::uniform_int_distribution<qint64> when(1, 86400000);
    for (int step = 0; step < 5000; ++step) {
        const size_t i = random() % timers.size();
        if (random() % 4 == 0) {
            timers[i]->stop();
            due[i] = -1;
        } else {
            due[i] = origin + when(random);
            timers[i]->startAt(due[i], 7 * 86400000LL);
        }
    }
    std::vector<qint64> expected;
    for (qint64 d : due) {
        if (d >= 0) {
            expected.push_back(d);
        }
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Queue().size(), expected.size());
    EXPECT_EQ(Queue().headDueMSecs(), expected.front());
    // Walk the day in steps, as successive wakes would.
    for (qint64 t = origin; t <= origin + 86400000; t += 3600000) {
        clock.To(QDateTime::fromMSecsSinceEpoch(t));
        Queue().Recheck();
    }
    EXPECT_EQ(order, expected);
}

// A timer stopped or destroyed by the time-out of another in the same wake
// does not expire.
TEST(DeadlineQueue, ATimerStoppedByAnEarlierTimeoutIsSkipped) {
    ClockShift clock(At("2026-03-10 08:00:00"));
    auto victim = std::make_unique<Recorder>();
    CallingTimer killer([&victim](qint64) { victim.reset(); });
    killer.startAt(Ms("2026-03-10 08:01:00"), 60000);
    victim->timer.startAt(Ms("2026-03-10 08:02:00"), 60000);
    clock.To(At("2026-03-10 08:05:00"));
    Queue().Recheck();
    EXPECT_EQ(victim, nullptr);
    EXPECT_EQ(Queue().size(), 1u);
}

// On the real clock the queue's own wake delivers the time-out.
TEST(DeadlineQueue, WakesForTheDueInstant) {
    Clock::reset();
    Recorder soon;
    const qint64 due = Clock::nowMSecsSinceEpoch() + 30;
    soon.timer.startAt(due, 3600000);
    QElapsedTimer waited;
    waited.start();
    while (soon.expired.empty() && waited.elapsed() < 10000) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    }
    EXPECT_EQ(soon.expired, std::vector<qint64>{due});
    EXPECT_GE(Clock::nowMSecsSinceEpoch(), due);
}
} // namespace
