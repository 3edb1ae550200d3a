// Loading, polling, timer-mode and event firing over the real registry, with a
// capturing client link and the process clock shifted instead of waited for.
#include "support/ClockShift.h"
#include "support/FakeClientLink.h"
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "FakeRunStateRecorder.h"
#include "firing/TriggerFireManager.h"
#include "firing/TriggerFireManagerWork.h"
#include "framework/ConfigReader.h"
#include "store/SchedulerMemoryObjects.h"
#include "timing/DeadlineQueue.h"
#include "triggers/AtTimeFire.h"
#include "triggers/EventerFire.h"
#include "triggers/TimerFire.h"

#include <QCoreApplication>
#include <QMap>
#include <QPointer>
#include <QSet>
#include <QTest>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

namespace {
class Firing : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(registry->Init());
        TriggerFireManager::SetRunState(&runState);
    }
    void TearDown() override {
        work().setPollSliceNSecs(TriggerFireManagerWork::kPollSliceNSecs);
        manager.Stop();
        manager.UnInit();
        manager.UnInit();
        TriggerFireManager::SetRunState(nullptr);
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        registry->UnInit();
        ConfigReader::ResetToDefaults();
        Clock::reset();
    }

    TriggerObject* Register(const QString& planUuid, const TriggerDefinition& definition) {
        auto* object = new TriggerObject(MakeTrigger(planUuid, definition));
        EXPECT_TRUE(registry->InsertTriggerObject(planUuid, object));
        return object;
    }

    // A trigger whose first start has been computed already and is due at `next`.
    TriggerObject* RegisterDue(const QString& planUuid, const TriggerDefinition& definition,
                               const char* next) {
        TriggerObject* object = Register(planUuid, definition);
        object->setFirstSeekDone(1);
        object->setNextStartTime(next);
        return object;
    }

    void Poll(const char* now) {
        Clock::freezeAt(At(now));
        QMetaObject::invokeMethod(&work(), "onAtTimerOut", Qt::DirectConnection);
    }

    // Plans p0... all due in the polled minute, and a pass that stops after its
    // first slice.
    void StartSlicedPass(int plans) {
        for (int i = 0; i < plans; ++i) {
            RegisterDue(QString("p%1").arg(i), {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
        }
        ASSERT_TRUE(manager.Init());
        ASSERT_TRUE(manager.Start());
        work().setPollSliceNSecs(0);
        Poll("2026-03-10 08:30:00.200");
    }

    static TriggerFireManagerWork& work() { return TriggerFireManagerWork::Instance(); }

    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    TriggerFireManager manager;
    FakeRunStateRecorder runState;
    std::optional<FakeClientLink> link{std::in_place};
    LogCapture log;
};

TEST_F(Firing, LoadsOneFirePerLiveTriggerOfTheConfiguredMode) {
    Register("daily", {2, "2026-03-01 09:30:00"});
    Register("logon-1", {257});
    Register("logon-2", {257});
    Register("ended", {2, "2026-03-01 09:30:00"})->getObjectTriggerAttribute().setTriggerEndFlag(1);
    ASSERT_TRUE(manager.Init());
    EXPECT_EQ(work().DateTimeFireCount(), 1);
    EXPECT_NE(qobject_cast<AtTimeFire*>(work().DateTimeFireOf("daily")), nullptr);
    EXPECT_EQ(work().DateTimeFireOf("ended"), nullptr);
    EXPECT_EQ(work().EventFireCount(257), 2);
}

TEST_F(Firing, TimerModeGivesTimerFires) {
    ConfigReader::setDateTimeFireType(1);
    Register("weekly", {3, "2026-03-01 09:30:00", "", 0, 0, "1"});
    ASSERT_TRUE(manager.Init());
    EXPECT_NE(qobject_cast<TimerFire*>(work().DateTimeFireOf("weekly")), nullptr);
    ASSERT_TRUE(manager.Start());
    EXPECT_FALSE(manager.isPolling());
}

TEST_F(Firing, ATriggerTypeWithoutFireFailsTheLoad) {
    for (quint64 type : {0ULL, 5ULL, 255ULL, 262ULL}) {
        SCOPED_TRACE(type);
        log.Clear();
        Register("odd", {type});
        EXPECT_FALSE(manager.Init());
        EXPECT_EQ(log.Count("Failed to load trigger fires."), 1);
        manager.UnInit();
        registry->ClearTriggerObjects();
    }
}

struct PollRow {
    const char* name;
    const char* storedNext;
    const char* now;
    bool fires;
};

// A trigger due at 08:30:00 or 08:30:45 is found due by every poll of the
// minute 08:30 and by no other.
TEST_F(Firing, PollFindsTheDueMinute) {
    const PollRow rows[] = {
        {"just_before", "2026-03-10 08:30:00", "2026-03-10 08:29:59.999", false},
        {"minute_start", "2026-03-10 08:30:00", "2026-03-10 08:30:00.000", true},
        {"minute_end", "2026-03-10 08:30:00", "2026-03-10 08:30:59.999", true},
        {"seconds_later_in_minute", "2026-03-10 08:30:45", "2026-03-10 08:30:00.000", true},
        {"next_minute", "2026-03-10 08:30:00", "2026-03-10 08:31:00.000", false},
    };
    for (const PollRow& row : rows) {
        SCOPED_TRACE(row.name);
        RegisterDue("p", {2, "2026-03-01 08:30:00"}, row.storedNext);
        ASSERT_TRUE(manager.Init());
        ASSERT_TRUE(manager.Start());
        link->Clear();
        Poll(row.now);
        EXPECT_EQ(link->CommandsOfType(600).size(), row.fires ? 1u : 0u);
        manager.Stop();
        manager.UnInit();
        registry->ClearTriggerObjects();
    }
}

TEST_F(Firing, FiresOnceInTheMinuteAndMovesOn) {
    TriggerObject* object = RegisterDue("p", {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    for (const char* now :
         {"2026-03-10 08:30:00.200", "2026-03-10 08:30:00.700", "2026-03-10 08:30:30.000"}) {
        Poll(now);
    }
    EXPECT_EQ(link->CommandsOfType(600).size(), 1u);
    EXPECT_EQ(object->getNextStartTime(), "2026-03-11 08:30:00");
    ASSERT_EQ(link->CommandsOfType(601).size(), 1u);
    EXPECT_EQ(link->CommandsOfType(601)[0].nextStartTime, "2026-03-11 08:30:00");
    EXPECT_TRUE(log.Has(
        log4cpp::Priority::INFO,
        "The AtTimeFire of scheduler[p] NowFire execution success in the onAtTimerOut.")); // The run reaches
                                                                                           // the recorder the
                                                                                           // fire manager was
                                                                                           // given.
    EXPECT_EQ(runState.Recorded().filter("occurrence p "), QStringList{"occurrence p on time"});
}

// A pass with more work than one slice goes on over later turns of the event
// loop; each due fire still fires once, also when the table changes between
// slices, and Stop ends the pass.
TEST_F(Firing, APassCutIntoSlicesFiresEveryDueTriggerOnce) {
    for (bool stopMidway : {false, true}) {
        SCOPED_TRACE(stopMidway);
        link->Clear();
        const int plans = 200;
        ASSERT_NO_FATAL_FAILURE(StartSlicedPass(plans));
        const size_t afterFirstSlice = link->CommandsOfType(600).size();
        EXPECT_GT(afterFirstSlice, 0u);
        EXPECT_LT(afterFirstSlice, static_cast<size_t>(plans));
        // The pass's run state goes in one transaction, when the pass ends.
        EXPECT_TRUE(runState.Held());
        if (stopMidway) {
            manager.Stop();
            EXPECT_FALSE(runState.Held());
            QTest::qWait(50);
            EXPECT_EQ(link->CommandsOfType(600).size(), afterFirstSlice);
        } else {
            TriggerObject* late = RegisterDue("late", {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
            ASSERT_NE(TriggerFireManager::NewTriggerFireCommand(late), nullptr);
            ASSERT_TRUE(QTest::qWaitFor(
                [&] { return link->CommandsOfType(600).size() == static_cast<size_t>(plans + 1); }, 10000));
            QTest::qWait(50);
            QSet<QString> fired;
            for (const FakeClientLink::Sent& sent : link->CommandsOfType(600)) {
                fired.insert(sent.planUuid);
            }
            EXPECT_EQ(fired.size(), plans + 1);
            EXPECT_EQ(link->CommandsOfType(600).size(), static_cast<size_t>(plans + 1));
            EXPECT_TRUE(QTest::qWaitFor([&] { return !runState.Held(); }, 10000));
            manager.Stop();
        }
        manager.UnInit();
        registry->ClearTriggerObjects();
    }
}

// Plan commands between two slices remove, replace and add fires, and the
// additions grow the table past a rehash: the pass goes on by key, so no fire
// is skipped, none runs twice, a removed one never runs and an added one runs
// in the pass that follows.
TEST_F(Firing, APassCutIntoSlicesSurvivesTheTableChangingUnderIt) {
    const int plans = 100;
    ASSERT_NO_FATAL_FAILURE(StartSlicedPass(plans));
    QSet<QString> firedFirst;
    for (const FakeClientLink::Sent& sent : link->CommandsOfType(600)) {
        firedFirst.insert(sent.planUuid);
    }
    QStringList waiting;
    for (int i = 0; i < plans; ++i) {
        if (!firedFirst.contains(QString("p%1").arg(i))) {
            waiting << QString("p%1").arg(i);
        }
    }
    ASSERT_GE(waiting.size(), 2);
    const QString removed = waiting.at(0);
    const QString replaced = waiting.at(1);
    ASSERT_TRUE(TriggerFireManager::RemoveTriggerFire(removed, 2));
    ASSERT_TRUE(TriggerFireManager::RemoveTriggerFire(replaced, 2));
    ASSERT_NE(TriggerFireManager::NewTriggerFireCommand(registry->FindTriggerObject(replaced)), nullptr);
    const int added = 300;
    for (int i = 0; i < added; ++i) {
        TriggerObject* late =
            RegisterDue(QString("added%1").arg(i), {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
        ASSERT_NE(TriggerFireManager::NewTriggerFireCommand(late), nullptr);
    }
    const auto expected = static_cast<size_t>(plans - 1 + added);
    ASSERT_TRUE(QTest::qWaitFor([&] { return link->CommandsOfType(600).size() >= expected; }, 10000));
    QTest::qWait(50);
    QMap<QString, int> runs;
    for (const FakeClientLink::Sent& sent : link->CommandsOfType(600)) {
        ++runs[sent.planUuid];
    }
    EXPECT_FALSE(runs.contains(removed));
    EXPECT_EQ(runs.size(), static_cast<int>(expected));
    for (auto it = runs.cbegin(); it != runs.cend(); ++it) {
        EXPECT_EQ(it.value(), 1) << qPrintable(it.key());
    }
}

TEST_F(Firing, AMissedMinuteIsLoggedAndNotFired) {
    TriggerObject* object = RegisterDue("p", {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
    ASSERT_TRUE(manager.Init());
    Poll("2026-03-10 08:32:10");
    EXPECT_TRUE(link->CommandsOfType(600).empty());
    EXPECT_TRUE(log.Has(log4cpp::Priority::WARN,
                        "The AtTimeFire of scheduler[p] nextdatetime[2026-03-10 08:30:00] less "
                        "than currdatetime[2026-03-10 08:32:10] in the onAtTimerOut."));
    EXPECT_EQ(object->getNextStartTime(), "2026-03-11 08:30:00");
}

TEST_F(Firing, AFinishedTriggerEndsButStaysRegistered) {
    TriggerObject* object = RegisterDue("once", {1, "2026-03-10 08:30:00"}, "2026-03-10 08:30:00");
    ASSERT_TRUE(manager.Init());
    Poll("2026-03-10 08:30:10");
    EXPECT_EQ(link->CommandsOfType(600).size(), 1u);
    const auto reports = link->CommandsOfType(601);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].endFlag, 1u);
    EXPECT_EQ(object->getObjectTriggerAttribute().getTriggerEndFlag(), 1u);
    EXPECT_EQ(work().DateTimeFireOf("once"), nullptr);
    EXPECT_EQ(registry->FindTriggerObject("once"), object);
    EXPECT_TRUE(
        log.Has(log4cpp::Priority::INFO, "The AtTimeFire of scheduler[once] trigger execution finished."));
}

// A trigger whose next start can no longer be found loses its fire, with
// one error line, and stays registered.
TEST_F(Firing, ATriggerWithoutFurtherStartLosesItsFire) {
    TriggerObject* object = RegisterDue("stuck", {4, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
    ASSERT_TRUE(manager.Init());
    object->getObjectTriggerAttribute().setMonthDays("30");
    object->getObjectTriggerAttribute().setWhichMoths("2");
    Poll("2026-03-10 08:30:05");
    EXPECT_EQ(work().DateTimeFireOf("stuck"), nullptr);
    EXPECT_EQ(log.Count("The AtTimeFire of scheduler[stuck] execution error."), 1);
    EXPECT_EQ(registry->FindTriggerObject("stuck"), object);
}

TEST_F(Firing, AFreshTriggerIsComputedNotFiredOnItsFirstPoll) {
    TriggerObject* object = Register("p", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(manager.Init());
    Poll("2026-03-10 08:00:20");
    EXPECT_TRUE(link->CommandsOfType(600).empty());
    EXPECT_EQ(object->getNextStartTime(), "2026-03-10 08:30:00");
}

// An interval below a minute would make every poll of the minute fire again;
// polling fires such a plan once a minute.
TEST_F(Firing, ShortIntervalsFireAtMostOnceAMinute) {
    RegisterDue("fast", {2, "2026-03-01 08:30:00", "", 20}, "2026-03-10 08:30:00");
    ASSERT_TRUE(manager.Init());
    for (const char* now : {"2026-03-10 08:30:00.100", "2026-03-10 08:30:00.600", "2026-03-10 08:30:20.100",
                            "2026-03-10 08:30:40.100", "2026-03-10 08:30:59.900", "2026-03-10 08:31:00.100",
                            "2026-03-10 08:31:30.100", "2026-03-10 08:32:00.100"}) {
        Poll(now);
    }
    EXPECT_EQ(link->CommandsOfType(600).size(), 3u);
    // One report per run, each with the start that the next run keeps.
    const auto reports = link->CommandsOfType(601);
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].nextStartTime, "2026-03-10 08:31:20");
    EXPECT_EQ(reports[2].nextStartTime, "2026-03-10 08:33:20");
    EXPECT_EQ(log.CountContaining("less than currdatetime"), 0);
}

TEST_F(Firing, PollingManagerRunsThePollUntilStopped) {
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    EXPECT_TRUE(manager.isPolling());
    manager.Stop();
    EXPECT_FALSE(manager.isPolling());
    manager.onkillAtTimer();
    manager.Stop();
}

TEST_F(Firing, StopDisarmsEveryTimerAndKeepsTheFiresListed) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:28:30"));
    const QStringList plans = {"a", "b", "c"};
    for (const QString& plan : plans) {
        Register(plan, {2, "2026-03-01 08:30:00"});
    }
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    manager.Stop();
    EXPECT_EQ(work().DateTimeFireCount(), plans.size());
    for (const QString& plan : plans) {
        auto* fire = qobject_cast<TimerFire*>(work().DateTimeFireOf(plan));
        ASSERT_NE(fire, nullptr);
        EXPECT_FALSE(fire->isArmed()) << plan.toStdString();
        EXPECT_EQ(fire->GetTriggerObject(), nullptr);
    }
}

TEST_F(Firing, TimerModeReplacesTheFireAfterEachRun) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("t", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    QPointer<TimerFire> first = qobject_cast<TimerFire*>(work().DateTimeFireOf("t"));
    ASSERT_FALSE(first.isNull());
    EXPECT_NEAR(first->armedIntervalMSecs(), 90000, 50);
    clock.To(At("2026-03-10 08:30:00.000"));
    QMetaObject::invokeMethod(first, "ontimeout", Qt::DirectConnection);
    QCoreApplication::processEvents();
    EXPECT_EQ(link->CommandsOfType(600).size(), 1u);
    auto* second = qobject_cast<TimerFire*>(work().DateTimeFireOf("t"));
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(first.isNull());
    EXPECT_TRUE(second->isArmed());
    EXPECT_NEAR(second->armedIntervalMSecs(), 24 * 3600 * 1000, 50);
}

struct ClockMoveRow {
    const char* name;
    const char* movedTo;
    size_t runsAtOnce;
    const char* nextStart;
};

// Timer mode, a daily plan due at 08:30:00 and armed at 08:28:30, when the
// wall clock steps or the machine sleeps over the due time (the same thing to
// the process: the wall clock has moved on, the monotonic wait has not run
// out). The queue's next look at the wall clock, at most a minute away or at
// once on resume, runs what came due once; after a step back the plan waits
// for its time on the new clock.
TEST_F(Firing, TimerModeFollowsTheWallClock) {
    ConfigReader::setDateTimeFireType(1);
    const ClockMoveRow rows[] = {
        {"step_forward_over_due", "2026-03-10 08:36:00", 1, "2026-03-11 08:30:00"},
        // A daily follow-up is sought from the next calendar day on.
        {"resume_next_morning", "2026-03-11 07:00:00", 1, "2026-03-12 08:30:00"},
        {"step_back", "2026-03-10 07:28:30", 0, "2026-03-10 08:30:00"},
    };
    DeadlineQueue& queue = DeadlineQueue::ForCurrentThread();
    for (const ClockMoveRow& row : rows) {
        SCOPED_TRACE(row.name);
        ClockShift clock(At("2026-03-10 08:28:30"));
        TriggerObject* object = Register("t", {2, "2026-03-01 08:30:00"});
        ASSERT_TRUE(manager.Init());
        ASSERT_TRUE(manager.Start());
        link->Clear();
        clock.To(At(row.movedTo));
        for (int look = 0; look < 2; ++look) {
            queue.Recheck();
            QCoreApplication::processEvents();
            QCoreApplication::processEvents();
        }
        EXPECT_EQ(link->CommandsOfType(600).size(), row.runsAtOnce);
        EXPECT_EQ(object->getNextStartTime(), row.nextStart);
        clock.To(At(row.nextStart));
        queue.Recheck();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        EXPECT_EQ(link->CommandsOfType(600).size(), row.runsAtOnce + 1);
        manager.Stop();
        manager.UnInit();
        registry->ClearTriggerObjects();
    }
}

// An every-minute plan whose runs each fire 40 ms after their second keeps
// its starts on the second: each follow-up is computed from the instant the
// run was due, not from the moment it fired.
TEST_F(Firing, TimerModeRepetitionsDoNotDrift) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:28:30.250"));
    TriggerObject* object = Register("minutely", {2, "2026-03-01 08:30:00", "", 60});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    DeadlineQueue& queue = DeadlineQueue::ForCurrentThread();
    for (int run = 0; run < 5; ++run) {
        auto* fire = qobject_cast<TimerFire*>(work().DateTimeFireOf("minutely"));
        ASSERT_NE(fire, nullptr);
        EXPECT_EQ(fire->armedDueMSecs() % 60000, 0) << run;
        clock.To(QDateTime::fromMSecsSinceEpoch(fire->armedDueMSecs() + 40));
        queue.Recheck();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(link->CommandsOfType(600).size(), 5u);
    EXPECT_EQ(object->getNextStartTime(), "2026-03-10 08:35:00");
}

// Next start texts keep meaning local time: after a change of the zone a timer
// fire aims at its text read in the new zone, and the poll reads it anew.
TEST_F(Firing, AZoneChangeMovesTimerFiresWithTheirLocalTimes) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("z", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    auto* fire = qobject_cast<TimerFire*>(work().DateTimeFireOf("z"));
    ASSERT_NE(fire, nullptr);
    const qint64 before = fire->armedDueMSecs();
    const QByteArray savedTz = qgetenv("TZ");
    qputenv("TZ", "Etc/GMT+4");
    tzset();
    work().LocalTimeZoneChanged();
    const qint64 after = fire->armedDueMSecs();
    qputenv("TZ", savedTz);
    tzset();
    EXPECT_EQ(after - before, 4 * 3600 * 1000LL);
}

TEST_F(Firing, TimerModeTimeoutForARemovedPlanDoesNothingElse) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("gone", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    auto* fire = qobject_cast<TimerFire*>(work().DateTimeFireOf("gone"));
    clock.To(At("2026-03-10 08:30:00"));
    QMetaObject::invokeMethod(fire, "ontimeout", Qt::DirectConnection);
    EXPECT_TRUE(TriggerFireManager::RemoveTriggerFire("gone", 2));
    log.Clear();
    link->Clear();
    QCoreApplication::processEvents();
    EXPECT_TRUE(link->Commands().empty());
    EXPECT_EQ(log.Messages(), QStringList{"The TimerFire of scheduler[gone] is not find  in the list."});
}

// In timer mode a run the client link refuses leaves the fire in place, to be
// tried again one wait later.
TEST_F(Firing, TimerModeKeepsTheFireWhenTheRunIsRefused) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("refused", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    QPointer<TimerFire> fire = qobject_cast<TimerFire*>(work().DateTimeFireOf("refused"));
    ASSERT_FALSE(fire.isNull());
    // Without a live client link every command is refused.
    link.reset();
    clock.To(At("2026-03-10 08:30:00"));
    QMetaObject::invokeMethod(fire, "ontimeout", Qt::DirectConnection);
    QCoreApplication::processEvents();
    EXPECT_EQ(
        log.Count("The TimerFire of scheduler[refused] NowFire execution failed in the onTimerTimeout."), 1);
    EXPECT_EQ(work().DateTimeFireOf("refused"), fire.data());
}

struct NewFireRow {
    const char* name;
    TriggerDefinition definition;
    quint64 started;
    quint64 endFlag;
};

// A plan command's fire is started before it is listed: while it starts and
// reports to the agent, no poll or time-out can reach it and end it. It is
// listed only when it goes on.
TEST_F(Firing, APlanCommandsFireIsListedOnlyOnceStarted) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:30:00"));
    const NewFireRow rows[] = {
        {"scheduled", {1, "2026-03-10 09:00:00"}, 0, 0},
        {"finished_at_once", {1, "2026-03-10 08:20:00"}, 2, 1},
    };
    ASSERT_TRUE(manager.Init());
    for (const NewFireRow& row : rows) {
        SCOPED_TRACE(row.name);
        TriggerObject* object = Register(row.name, row.definition);
        std::vector<bool> listedWhileStarting;
        link->OnEachCommand([&](const FakeClientLink::Sent&) {
            listedWhileStarting.push_back(work().DateTimeFireOf(row.name) != nullptr);
        });
        EXPECT_EQ(TriggerFireManager::StartNewTriggerFire(object), row.started);
        link->OnEachCommand(nullptr);
        EXPECT_EQ(listedWhileStarting, std::vector<bool>{false});
        EXPECT_EQ(work().DateTimeFireOf(row.name) != nullptr, row.started == 0);
        ASSERT_EQ(link->CommandsOfType(601).size(), 1u);
        EXPECT_EQ(link->CommandsOfType(601)[0].endFlag, row.endFlag);
        link->Clear();
    }
}

// A time-out queued by a fire that a plan change replaced before it was
// handled must not run the plan at its old time.
TEST_F(Firing, AStaleTimeoutDoesNotFireTheReplacement) {
    ConfigReader::setDateTimeFireType(1);
    ClockShift clock(At("2026-03-10 08:29:59"));
    TriggerObject* object = Register("m", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    TimerFire* old = qobject_cast<TimerFire*>(work().DateTimeFireOf("m"));
    ASSERT_NE(old, nullptr);
    clock.To(At("2026-03-10 08:30:00"));
    QMetaObject::invokeMethod(old, "ontimeout", Qt::DirectConnection);
    // The plan is modified before the queued time-out is handled.
    ASSERT_TRUE(TriggerFireManager::RemoveTriggerFire("m", 2));
    object->getObjectTriggerAttribute().setStartTime("2026-03-01 18:00:00");
    object->setFirstSeekDone(0);
    ASSERT_EQ(TriggerFireManager::StartNewTriggerFire(object), 0u);
    QPointer<TimerFire> replacement = qobject_cast<TimerFire*>(work().DateTimeFireOf("m"));
    link->Clear();
    QCoreApplication::processEvents();
    EXPECT_TRUE(link->CommandsOfType(600).empty());
    EXPECT_EQ(work().DateTimeFireOf("m"), replacement.data());
    EXPECT_EQ(object->getNextStartTime(), "2026-03-10 18:00:00");
    EXPECT_EQ(log.Count("The TimerFire of scheduler[m] time-out of a replaced fire is dropped."), 1);
}

TEST_F(Firing, ALogonFiresEveryPlanWaitingForIt) {
    Register("a", {257});
    Register("b", {257});
    Register("lock", {259});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    link->Clear();
    EXPECT_TRUE(TriggerFireManager::FireEventTrigger(257));
    const auto sent = link->CommandsOfType(600);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_NE(sent[0].planUuid, "lock");
    EXPECT_NE(sent[1].planUuid, "lock");
    EXPECT_EQ(log.Count("Fire to the EventFire[a] job success."), 1);
    EXPECT_EQ(log.Count("Fire to the EventFire[b] job success."), 1);
    EXPECT_TRUE(TriggerFireManager::FireEventTrigger(261));
    EXPECT_TRUE(TriggerFireManager::RemoveTriggerFire("a", 257));
    EXPECT_EQ(work().EventFireCount(257), 1);
    EXPECT_TRUE(TriggerFireManager::RemoveTriggerFire("lock", 259));
    EXPECT_EQ(work().EventFireCount(259), 0);
    EXPECT_EQ(work().EventFireCount(257), 1);
}

TEST_F(Firing, NoTablesNoFiring) {
    EXPECT_FALSE(TriggerFireManager::FireEventTrigger(257));
    EXPECT_EQ(TriggerFireManager::StartTriggerFire(nullptr), 1u);
    EXPECT_FALSE(TriggerFireManager::RemoveTriggerFire("", 2));
    EXPECT_FALSE(TriggerFireManager::RemoveTriggerFire("x", 0));
    EXPECT_FALSE(TriggerFireManager::RemoveTriggerFire("x", 7));
    ASSERT_TRUE(manager.Init());
    EXPECT_TRUE(TriggerFireManager::RemoveTriggerFire("not-listed", 2));
}

TEST_F(Firing, StartEndsFinishedTriggersAndKeepsTheOthers) {
    ClockShift clock(At("2026-03-10 09:00:00"));
    ConfigReader::setDateTimeFireType(1);
    Register("over", {1, "2026-03-10 08:00:00"});
    Register("later", {1, "2026-03-10 10:00:00"});
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    EXPECT_EQ(work().DateTimeFireOf("over"), nullptr);
    EXPECT_NE(work().DateTimeFireOf("later"), nullptr);
    EXPECT_EQ(log.Count("The TriggerFire of scheduler[over] trigger execution finished."), 1);
    EXPECT_EQ(log.Count("The TriggerFire of scheduler[later] start success."), 1);
}

// Plans come and go on a second thread, as the command handler does: once
// plans that finish as they start, plans with an interval below a minute and
// event plans, while this thread polls (polling mode) or runs the time-outs of
// plans that are due again and again (timer mode), and fires events.
void ChurnWhileFiring(quint64 fireType) {
    ConfigReader::setDateTimeFireType(fireType);
    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    QDateTime now = At("2026-03-10 08:30:10");
    Clock::freezeAt(now);
    std::vector<QString> steady;
    for (int i = 0; i < 30; ++i) {
        steady.push_back(QString("steady-%1").arg(i));
        auto* object = new TriggerObject(MakeTrigger(steady.back(), {2, "2026-03-10 08:30:00", "", 20}));
        registry->InsertTriggerObject(steady.back(), object);
    }
    const TriggerDefinition kinds[] = {
        {1, "2026-03-10 08:20:00"}, {2, "2026-03-10 08:30:00", "", 20}, {3, "", "", 15, 0, "2"}, {257}};
    std::vector<TriggerObject*> churned;
    for (int i = 0; i < 120; ++i) {
        const QString planUuid = QString("churn-%1").arg(i);
        churned.push_back(new TriggerObject(MakeTrigger(planUuid, kinds[i % 4])));
    }
    TriggerFireManager manager;
    ASSERT_TRUE(manager.Init());
    ASSERT_TRUE(manager.Start());
    std::atomic<bool> done{false};
    std::thread handler([&] {
        for (int round = 0; round < 4; ++round) {
            for (TriggerObject* object : churned) {
                object->setFirstSeekDone(0);
                object->getObjectTriggerAttribute().setTriggerEndFlag(0);
                TriggerFireManager::StartNewTriggerFire(object);
            }
            for (TriggerObject* object : churned) {
                TriggerFireManager::RemoveTriggerFire(object->getPlanUuid(), object->getTriggerType());
            }
        }
        done = true;
    });
    auto& work = TriggerFireManagerWork::Instance();
    while (!done) {
        now = now.addSecs(30);
        Clock::freezeAt(now);
        if (fireType == 1) {
            for (const QString& planUuid : steady) {
                QMetaObject::invokeMethod(work.DateTimeFireOf(planUuid), "ontimeout", Qt::DirectConnection);
            }
        } else {
            QMetaObject::invokeMethod(&work, "onAtTimerOut", Qt::DirectConnection);
        }
        TriggerFireManager::FireEventTrigger(257);
        QCoreApplication::processEvents();
    }
    handler.join();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(work.DateTimeFireCount(), static_cast<int>(steady.size()));
    EXPECT_EQ(work.EventFireCount(257), 0);
    manager.Stop();
    manager.UnInit();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    qDeleteAll(churned);
}

TEST_F(Firing, PollingSurvivesPlanChurn) {
    ChurnWhileFiring(0);
}

TEST_F(Firing, TimerModeSurvivesPlanChurn) {
    ChurnWhileFiring(1);
}
} // namespace
