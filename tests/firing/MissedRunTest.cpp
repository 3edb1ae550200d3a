// The missed-run policy: starts that passed while the service was down or
// while the clock jumped, with the process clock moved instead of waited for.
#include "support/ClockShift.h"
#include "support/FakeClientLink.h"
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "firing/TriggerFireManager.h"
#include "firing/TriggerFireManagerWork.h"
#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "store/SchedulerMemoryObjects.h"
#include "timing/DeadlineQueue.h"

#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>
#include <optional>

namespace {
const QString kCatchUpLine = "missed its start";
const QString kLateLine = "less than currdatetime";

class MissedRuns : public ::testing::Test {
public:
    void SetUp() override { ASSERT_TRUE(registry->Init()); }
    void TearDown() override {
        manager.Stop();
        manager.UnInit();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        registry->UnInit();
        ConfigReader::ResetToDefaults();
        Clock::reset();
    }

    // Loads the registered plans' fires under the policy.
    void Start(const char* policy, quint64 spreadSecs = 0) {
        ConfigReader::setMissedRunPolicy(policy, spreadSecs);
        ASSERT_TRUE(manager.Init());
    }
    void Start() { Start(policy); }

    const char* policy = "skip";

    TriggerObject* Register(const QString& planUuid, const TriggerDefinition& definition) {
        auto* object = new TriggerObject(MakeTrigger(planUuid, definition));
        EXPECT_TRUE(registry->InsertTriggerObject(planUuid, object));
        return object;
    }

    void Poll(const char* now) {
        Clock::freezeAt(At(now));
        QMetaObject::invokeMethod(&TriggerFireManagerWork::Instance(), "onAtTimerOut", Qt::DirectConnection);
    }

    // Lets waiting catch-ups without a spread go out.
    static void Settle() {
        for (int i = 0; i < 3; ++i) {
            QCoreApplication::processEvents();
        }
    }

    // The start each 600 was sent for.
    QStringList Runs() const {
        QStringList starts;
        for (const FakeClientLink::Sent& sent : link->CommandsOfType(600)) {
            starts << sent.nextStartTime;
        }
        return starts;
    }

    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    TriggerFireManager manager;
    std::optional<FakeClientLink> link{std::in_place};
    LogCapture log;
};

// Every minute from 10:00.
const TriggerDefinition kEveryMinute{2, "2026-03-10 10:00:00", "", 60};
const TriggerDefinition kDaily{2, "2026-03-01 02:00:00"};
const TriggerDefinition kDaily0800{2, "2026-03-01 08:00:00"};

struct GapCase {
    const char* name;
    // Brings the plan to the gap and over it; the service "starts" here when
    // the case has stored runs.
    std::function<void(MissedRuns&)> gap;
    QStringList onceRuns; // the starts run with policy once
    QStringList skipRuns; // and with skip
    int lateLines;        // the polling warning, the same under both policies
};

class MissedRunGap : public MissedRuns, public ::testing::WithParamInterface<std::tuple<GapCase, bool>> {};

TEST_P(MissedRunGap, RunsOnceWithOnceAndNeverWithSkip) {
    const GapCase& c = std::get<0>(GetParam());
    const bool once = std::get<1>(GetParam());
    policy = once ? "once" : "skip";
    c.gap(*this);
    Settle();
    EXPECT_EQ(Runs(), once ? c.onceRuns : c.skipRuns);
    EXPECT_EQ(log.CountContaining(kCatchUpLine), once ? c.onceRuns.size() - c.skipRuns.size() : 0);
    EXPECT_EQ(log.CountContaining(kLateLine), c.lateLines);
}

void Downtime(MissedRuns&, const char* lastDue, const char* storedNext, const char* startAt) {
    Clock::freezeAt(At(startAt));
    TriggerFireManagerWork::Instance().CatchUpDowntime({{"plan", {lastDue, storedNext}}});
}

INSTANTIATE_TEST_SUITE_P(Cases, MissedRunGap,
                         ::testing::Combine(::testing::Values(GapCase{"downtimeOverOneStart",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kDaily);
                                                                          t.Start();
                                                                          Downtime(t, "2026-03-09 02:00:00",
                                                                                   "2026-03-10 02:00:00",
                                                                                   "2026-03-10 09:00:00");
                                                                      },
                                                                      {"2026-03-10 02:00:00"},
                                                                      {},
                                                                      0},
                                                              GapCase{"downtimeOverTenStarts",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kDaily);
                                                                          t.Start();
                                                                          Downtime(t, "2026-02-27 02:00:00",
                                                                                   "2026-02-28 02:00:00",
                                                                                   "2026-03-10 09:00:00");
                                                                      },
                                                                      {"2026-02-28 02:00:00"},
                                                                      {},
                                                                      0},
                                                              GapCase{"downtimeNeverRanBefore",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kDaily);
                                                                          t.Start();
                                                                          Downtime(t, "",
                                                                                   "2026-03-10 02:00:00",
                                                                                   "2026-03-10 09:00:00");
                                                                      },
                                                                      {},
                                                                      {},
                                                                      0},
                                                              GapCase{"downtimeStartStillInThisMinute",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kDaily);
                                                                          t.Start();
                                                                          Downtime(t, "2026-03-09 02:00:00",
                                                                                   "2026-03-10 02:00:00",
                                                                                   "2026-03-10 02:00:40");
                                                                      },
                                                                      {},
                                                                      {},
                                                                      0},
                                                              GapCase{"forwardStepOverFiveStarts",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kEveryMinute);
                                                                          t.Start();
                                                                          t.Poll("2026-03-10 09:59:30");
                                                                          t.Poll("2026-03-10 10:00:01");
                                                                          t.Poll("2026-03-10 10:05:30");
                                                                      },
                                                                      {"2026-03-10 10:00:00",
                                                                       "2026-03-10 10:01:00"},
                                                                      {"2026-03-10 10:00:00"},
                                                                      1},
                                                              GapCase{"resumeAfterTwoNights",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kDaily);
                                                                          t.Start();
                                                                          t.Poll("2026-03-10 01:59:00");
                                                                          t.Poll("2026-03-10 02:00:00");
                                                                          t.Poll("2026-03-12 07:30:00");
                                                                      },
                                                                      {"2026-03-10 02:00:00",
                                                                       "2026-03-11 02:00:00"},
                                                                      {"2026-03-10 02:00:00"},
                                                                      1},
                                                              GapCase{"forwardStepBeforeTheFirstRun",
                                                                      [](MissedRuns& t) {
                                                                          t.Register("plan", kEveryMinute);
                                                                          t.Start();
                                                                          t.Poll("2026-03-10 09:59:30");
                                                                          t.Poll("2026-03-10 10:05:30");
                                                                      },
                                                                      {},
                                                                      {},
                                                                      1}),
                                            ::testing::Bool()),
                         [](const ::testing::TestParamInfo<std::tuple<GapCase, bool>>& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "_once" : "_skip");
                         });

// After the catch-up the plan keeps its own schedule.
TEST_F(MissedRuns, TheCatchUpIsFollowedByTheNormalSchedule) {
    Register("plan", kDaily);
    Start("once");
    Downtime(*this, "2026-03-09 02:00:00", "2026-03-10 02:00:00", "2026-03-10 09:00:00");
    Settle();
    Poll("2026-03-10 09:00:00");
    Poll("2026-03-11 02:00:05");
    Poll("2026-03-11 02:00:30");
    EXPECT_EQ(Runs(), (QStringList{"2026-03-10 02:00:00", "2026-03-11 02:00:00"}));
}

TEST_F(MissedRuns, EventTriggersAndUnknownPlansAreNeverCaughtUp) {
    Register("logon", {257});
    Start("once");
    Clock::freezeAt(At("2026-03-10 09:00:00"));
    TriggerFireManagerWork::Instance().CatchUpDowntime(
        {{"logon", {"2026-03-09 08:00:00", ""}}, {"gone", {"2026-03-09 02:00:00", "2026-03-10 02:00:00"}}});
    Settle();
    EXPECT_TRUE(Runs().isEmpty());
}

// A spread delays each catch-up; a run on schedule before it makes it void.
TEST_F(MissedRuns, ASpreadCatchUpStillComesAndARunOnScheduleBeforeItMakesItVoid) {
    Register("a", kDaily);
    Register("b", kEveryMinute);
    Start("once", 1);
    Poll("2026-03-10 09:59:59");
    Clock::freezeAt(At("2026-03-10 10:00:00"));
    TriggerFireManagerWork::Instance().CatchUpDowntime(
        {{"a", {"2026-03-09 02:00:00", "2026-03-10 02:00:00"}},
         {"b", {"2026-03-10 09:00:00", "2026-03-10 09:01:00"}}});
    // b's own start in this minute comes first.
    Poll("2026-03-10 10:00:00");
    ASSERT_TRUE(QTest::qWaitFor([this] { return Runs().size() == 2; }, 10000));
    EXPECT_EQ(Runs(), (QStringList{"2026-03-10 10:00:00", "2026-03-10 02:00:00"}));
    EXPECT_EQ(log.CountContaining(kCatchUpLine), 1);
}

struct TimerStepCase {
    const char* name;
    const char* policy;
    bool ranBefore;
    const char* movedTo;
    QStringList runs;
    int catchUps;
};

class MissedRunTimerStep : public MissedRuns, public ::testing::WithParamInterface<TimerStepCase> {};

// A timer whose start a step or a sleep passed over runs once when the queue
// notices, under either policy; with once, for a plan that ran before, that run
// is its catch-up.
TEST_P(MissedRunTimerStep, RunsThePassedOverStartOnce) {
    const TimerStepCase& c = GetParam();
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 07:59:50"));
    Register("plan", kDaily0800);
    Start(c.policy);
    ASSERT_TRUE(manager.Start());
    DeadlineQueue& queue = DeadlineQueue::ForCurrentThread();
    const auto look = [&queue] {
        for (int i = 0; i < 3; ++i) {
            queue.Recheck();
            Settle();
        }
    };
    if (c.ranBefore) {
        clock.To(At("2026-03-10 08:00:00"));
        look();
    }
    clock.To(At(c.movedTo));
    look();
    EXPECT_EQ(Runs(), c.runs);
    EXPECT_EQ(log.CountContaining(kCatchUpLine), c.catchUps);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MissedRunTimerStep,
    ::testing::Values(
        TimerStepCase{"stepSkip",
                      "skip",
                      true,
                      "2026-03-11 08:06:00",
                      {"2026-03-10 08:00:00", "2026-03-11 08:00:00"},
                      0},
        TimerStepCase{"stepOnce",
                      "once",
                      true,
                      "2026-03-11 08:06:00",
                      {"2026-03-10 08:00:00", "2026-03-11 08:00:00"},
                      1},
        TimerStepCase{"resumeOverThreeStartsOnce",
                      "once",
                      true,
                      "2026-03-13 09:30:00",
                      {"2026-03-10 08:00:00", "2026-03-11 08:00:00"},
                      1},
        TimerStepCase{
            "stepBeforeTheFirstRunOnce", "once", false, "2026-03-10 08:06:00", {"2026-03-10 08:00:00"}, 0}),
    [](const ::testing::TestParamInfo<TimerStepCase>& info) { return std::string(info.param.name); });

TEST_F(MissedRuns, AnUnknownPolicyIsSaidOnceAndSkips) {
    Register("plan", kDaily);
    Start("twice");
    EXPECT_EQ(log.CountContaining("MissedRunPolicy 'twice' is neither skip nor once"), 1);
    Downtime(*this, "2026-03-09 02:00:00", "2026-03-10 02:00:00", "2026-03-10 09:00:00");
    Settle();
    EXPECT_TRUE(Runs().isEmpty());
}
} // namespace
