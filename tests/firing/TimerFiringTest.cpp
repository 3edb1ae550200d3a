// The timer mode, event firing and plans that come and go while fires run.
#include "FiringFixture.h"

namespace {
TEST_F(Firing, TimerModeReplacesTheFireAfterEachRun) {
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("t", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(StartedInTimerMode());
    TimerFire* first = TimerFireOf("t");
    ASSERT_NE(first, nullptr);
    const quint32 firstSerial = first->serial();
    EXPECT_NEAR(first->armedIntervalMSecs(), 90000, 50);
    clock.To(At("2026-03-10 08:30:00.000"));
    first->ontimeout();
    QCoreApplication::processEvents();
    EXPECT_EQ(link->CommandsOfType(600).size(), 1u);
    auto* second = TimerFireOf("t");
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second->serial(), firstSerial);
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
    ClockShift clock(At("2026-03-10 08:28:30.250"));
    TriggerObject* object = Register("minutely", {2, "2026-03-01 08:30:00", "", 60});
    ASSERT_TRUE(StartedInTimerMode());
    DeadlineQueue& queue = DeadlineQueue::ForCurrentThread();
    for (int run = 0; run < 5; ++run) {
        auto* fire = TimerFireOf("minutely");
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
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("z", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(StartedInTimerMode());
    auto* fire = TimerFireOf("z");
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
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("gone", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(StartedInTimerMode());
    auto* fire = TimerFireOf("gone");
    clock.To(At("2026-03-10 08:30:00"));
    ASSERT_NE(fire, nullptr);
    fire->ontimeout();
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
    ClockShift clock(At("2026-03-10 08:28:30"));
    Register("refused", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(StartedInTimerMode());
    TimerFire* fire = TimerFireOf("refused");
    ASSERT_NE(fire, nullptr);
    const quint32 serial = fire->serial();
    // Without a live client link every command is refused.
    link.reset();
    clock.To(At("2026-03-10 08:30:00"));
    fire->ontimeout();
    QCoreApplication::processEvents();
    EXPECT_EQ(
        log.Count("The TimerFire of scheduler[refused] NowFire execution failed in the onTimerTimeout."), 1);
    ASSERT_NE(TimerFireOf("refused"), nullptr);
    EXPECT_EQ(TimerFireOf("refused")->serial(), serial);
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
    ClockShift clock(At("2026-03-10 08:29:59"));
    TriggerObject* object = Register("m", {2, "2026-03-01 08:30:00"});
    ASSERT_TRUE(StartedInTimerMode());
    TimerFire* old = TimerFireOf("m");
    ASSERT_NE(old, nullptr);
    clock.To(At("2026-03-10 08:30:00"));
    old->ontimeout();
    // The plan is modified before the queued time-out is handled.
    ASSERT_TRUE(TriggerFireManager::RemoveTriggerFire("m", 2));
    object->getObjectTriggerAttribute().setStartTime("2026-03-01 18:00:00");
    object->setFirstSeekDone(0);
    ASSERT_EQ(TriggerFireManager::StartNewTriggerFire(object), 0u);
    TimerFire* replacement = TimerFireOf("m");
    ASSERT_NE(replacement, nullptr);
    const quint32 replacementSerial = replacement->serial();
    link->Clear();
    QCoreApplication::processEvents();
    EXPECT_TRUE(link->CommandsOfType(600).empty());
    ASSERT_NE(TimerFireOf("m"), nullptr);
    EXPECT_EQ(TimerFireOf("m")->serial(), replacementSerial);
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
    Register("over", {1, "2026-03-10 08:00:00"});
    Register("later", {1, "2026-03-10 10:00:00"});
    ASSERT_TRUE(StartedInTimerMode());
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
                if (TimerFire* fire = TimerFireOf(planUuid)) {
                    fire->ontimeout();
                }
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
struct CommandArmingRow {
    const char* name;
    bool removed;
    bool startedAgain;
};

// A plan command starts its timer fire on the command handler's thread; the
// fire is armed on the application thread at a later turn, and an arming that
// finds its fire removed or replaced by then arms nothing: the replacement
// keeps its own start.
TEST_F(Firing, APlanCommandsFireIsArmedAtHomeUnlessRemovedFirst) {
    const CommandArmingRow rows[] = {
        {"armed_at_home", false, false}, {"removed_first", true, false}, {"replaced_first", true, true}};
    ClockShift clock(At("2026-03-10 08:00:00"));
    ASSERT_TRUE(StartedInTimerMode());
    for (const CommandArmingRow& row : rows) {
        SCOPED_TRACE(row.name);
        const QString plan = QString("cmd-%1").arg(row.name);
        TriggerObject* object = Register(plan, {1, "2026-03-10 09:00:00"});
        const size_t queued = DeadlineQueue::ForCurrentThread().size();
        quint64 started = 1;
        std::thread([object, &started] { started = TriggerFireManager::StartNewTriggerFire(object); }).join();
        ASSERT_EQ(started, 0u);
        ASSERT_NE(TimerFireOf(plan), nullptr);
        EXPECT_FALSE(TimerFireOf(plan)->isArmed());
        if (row.removed) {
            ASSERT_TRUE(TriggerFireManager::RemoveTriggerFire(plan, 1));
        }
        if (row.startedAgain) {
            object->getObjectTriggerAttribute().setStartTime("2026-03-10 10:00:00");
            object->setFirstSeekDone(0);
            ASSERT_EQ(TriggerFireManager::StartNewTriggerFire(object), 0u);
        }
        QCoreApplication::processEvents();
        const bool live = !row.removed || row.startedAgain;
        EXPECT_EQ(DeadlineQueue::ForCurrentThread().size(), queued + (live ? 1 : 0));
        if (live) {
            ASSERT_NE(TimerFireOf(plan), nullptr);
            const char* due = row.startedAgain ? "2026-03-10 10:00:00" : "2026-03-10 09:00:00";
            EXPECT_EQ(TimerFireOf(plan)->armedDueMSecs(), At(due).toMSecsSinceEpoch());
        }
    }
}
} // namespace
