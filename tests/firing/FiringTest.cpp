// Loading and the polling mode over the real registry.
#include "FiringFixture.h"

namespace {
TEST_F(Firing, LoadsOneFirePerLiveTriggerOfTheConfiguredMode) {
    Register("daily", {2, "2026-03-01 09:30:00"});
    Register("logon-1", {257});
    Register("logon-2", {257});
    Register("ended", {2, "2026-03-01 09:30:00"})->getObjectTriggerAttribute().setTriggerEndFlag(1);
    ASSERT_TRUE(manager.Init());
    EXPECT_EQ(work().DateTimeFireCount(), 1);
    TriggerFire* fire = work().DateTimeFireOf("daily");
    ASSERT_NE(fire, nullptr);
    EXPECT_NE(fire->AsAtTimeFire(), nullptr);
    EXPECT_EQ(work().DateTimeFireOf("ended"), nullptr);
    EXPECT_EQ(work().EventFireCount(257), 2);
}

TEST_F(Firing, TimerModeGivesTimerFires) {
    ConfigReader::setDateTimeFireType(1);
    Register("weekly", {3, "2026-03-01 09:30:00", "", 0, 0, "1"});
    ASSERT_TRUE(manager.Init());
    EXPECT_NE(TimerFireOf("weekly"), nullptr);
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
            LetPostedWorkRun();
            EXPECT_EQ(link->CommandsOfType(600).size(), afterFirstSlice);
        } else {
            TriggerObject* late = RegisterDue("late", {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
            ASSERT_NE(TriggerFireManager::NewTriggerFireCommand(late), nullptr);
            ASSERT_TRUE(QTest::qWaitFor(
                [&] { return link->CommandsOfType(600).size() == static_cast<size_t>(plans + 1); }, 10000));
            ASSERT_TRUE(QTest::qWaitFor([&] { return !runState.Held(); }, 10000));
            LetPostedWorkRun();
            QSet<QString> fired;
            for (const FakeClientLink::Sent& sent : link->CommandsOfType(600)) {
                fired.insert(sent.planUuid);
            }
            EXPECT_EQ(fired.size(), plans + 1);
            EXPECT_EQ(link->CommandsOfType(600).size(), static_cast<size_t>(plans + 1));
            manager.Stop();
        }
        manager.UnInit();
        registry->ClearTriggerObjects();
    }
}

// The start-up's first poll is one pass, whatever the slice: every due plan
// fires before the event loop has another turn.
TEST_F(Firing, TheStartUpsFirstPollIsOneWholePass) {
    const int plans = 200;
    for (int i = 0; i < plans; ++i) {
        RegisterDue(QString("p%1").arg(i), {2, "2026-03-01 08:30:00"}, "2026-03-10 08:30:00");
    }
    ASSERT_TRUE(manager.Init());
    work().setPollSliceNSecs(0);
    Clock::freezeAt(At("2026-03-10 08:30:00.200"));
    ASSERT_TRUE(manager.Start());
    QCoreApplication::sendPostedEvents(&work(), QEvent::MetaCall);
    EXPECT_EQ(link->CommandsOfType(600).size(), static_cast<size_t>(plans));
    EXPECT_FALSE(runState.Held());
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
    ASSERT_TRUE(QTest::qWaitFor([&] { return !runState.Held(); }, 10000));
    LetPostedWorkRun();
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
        auto* fire = TimerFireOf(plan);
        ASSERT_NE(fire, nullptr);
        EXPECT_FALSE(fire->isArmed()) << plan.toStdString();
        EXPECT_EQ(fire->GetTriggerObject(), nullptr);
    }
}
} // namespace
