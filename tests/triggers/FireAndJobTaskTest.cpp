// The trigger fire classes and the job task, with a capturing client link.
#include "support/ClockShift.h"
#include "support/FakeClientLink.h"
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "framework/ConfigReader.h"
#include "timing/DeadlineQueue.h"
#include "triggers/AtTimeFire.h"
#include "triggers/EventerFire.h"
#include "triggers/FireHost.h"
#include "triggers/FireState.h"
#include "triggers/JobTask.h"
#include "triggers/TimerFire.h"

#include <QCoreApplication>

#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

namespace {
// Records the time-outs of the fires it hosts, and the commands they send.
struct RecordingHost : FireHost {
    bool Send(const TriggerObject& object, quint64 commandType) override {
        sent.emplace_back(object.getPlanUuid(), commandType);
        return true;
    }
    void TimerExpired(TimerFire& fire, qint64) override { seen.emplace_back(fire.planUuid(), &fire); }
    void ArmAtHome(TimerFire& fire, qint64 dueMSecs, qint64 interval) override {
        armings.push_back({fire.planUuid(), dueMSecs, interval});
    }
    QObject* FireHome() override { return &home; }
    struct Arming {
        QString planUuid;
        qint64 dueMSecs;
        qint64 interval;
    };
    std::vector<std::pair<QString, TimerFire*>> seen;
    std::vector<Arming> armings;
    std::vector<std::pair<QString, quint64>> sent;
    QObject home;
};

TEST(JobTask, BuildsTheExecuteTriggerCommand) {
    FakeClientLink link;
    ConfigReader::setAgentEndpoint("agent.host", 6061);
    TriggerObject object = MakeTrigger("plan-1", {3, "2026-03-10 08:00:00"});
    EXPECT_TRUE(JobTask::FireJob(&object));
    ConfigReader::ResetToDefaults();
    const auto sent = link.Commands();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].type, 600u);
    EXPECT_EQ(sent[0].planUuid, "plan-1");
    EXPECT_EQ(sent[0].attribute.getProtocolType(), 2u);
    EXPECT_EQ(sent[0].attribute.getDestSvrNameIp(), "agent.host");
    EXPECT_EQ(sent[0].attribute.getDestPort(), 0u);
    EXPECT_EQ(sent[0].triggerFlag, 1u);
    EXPECT_EQ(sent[0].triggerType, 3u);
    EXPECT_TRUE(sent[0].nextStartTime.isEmpty());
    EXPECT_EQ(sent[0].endFlag, 0u);
}

TEST(JobTask, ReportsTheEndFlagAndNextStart) {
    FakeClientLink link;
    TriggerObject object = MakeTrigger("plan-2", {1, "2026-03-10 08:00:00"});
    object.setNextStartTime("2026-03-10 08:00:00");
    object.getObjectTriggerAttribute().setTriggerEndFlag(1);
    EXPECT_TRUE(JobTask::ReportTriggerInfo(&object));
    const auto sent = link.Commands();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].type, 601u);
    EXPECT_EQ(sent[0].nextStartTime, "2026-03-10 08:00:00");
    EXPECT_EQ(sent[0].endFlag, 1u);
}

// Without a client link the command is refused; the copy and the command are
// freed (checked under AddressSanitizer) and the registered object is unchanged.
TEST(JobTask, RefusedCommandsLeaveNothingBehind) {
    TriggerObject object = MakeTrigger("plan-3", {2, "2026-03-10 08:00:00"});
    EXPECT_FALSE(JobTask::FireJob(&object));
    EXPECT_FALSE(JobTask::ReportTriggerInfo(&object));
    EXPECT_FALSE(JobTask::FireJob(nullptr));
    EXPECT_FALSE(JobTask::SendTriggerCommand(nullptr, 600));
    EXPECT_FALSE(JobTask::SendTriggerCommand(new TriggerObject(object), 0));
    EXPECT_EQ(object.getPlanUuid(), "plan-3");
}

TEST(Fires, StartStopAndKinds) {
    TriggerObject object = MakeTrigger("X", {2, "2026-03-10 08:00:00"});
    TriggerFire base;
    EXPECT_EQ(base.getFireKind(), 0u);
    EXPECT_EQ(base.Start(), FireState::kFinished);
    EXPECT_FALSE(base.NowFire(nullptr));

    DateTimeFire dateTime;
    EXPECT_EQ(dateTime.getFireKind(), 1u);
    EXPECT_EQ(dateTime.Start(), FireState::kError);
    EXPECT_EQ(dateTime.getFireState(), FireState::kError);

    AtTimeFire atTime;
    EXPECT_TRUE(atTime.getAtTimeFlag());
    EXPECT_EQ(atTime.getFireState(), 0u);
    EXPECT_EQ(atTime.Start(), FireState::kScheduled);
    atTime.SetTriggerObject(&object);
    EXPECT_EQ(atTime.Start(), FireState::kScheduled);
    EXPECT_EQ(atTime.getFireState(), 0u);
    atTime.Stop();
    EXPECT_EQ(atTime.GetTriggerObject(), nullptr);

    EventerFire event;
    EXPECT_EQ(event.getFireKind(), 2u);
    EXPECT_TRUE(event.getPlanUuid().isEmpty());
    event.SetTriggerObject(&object);
    EXPECT_EQ(event.getPlanUuid(), "X");
    event.SetTriggerObject(nullptr);
    EXPECT_EQ(event.getPlanUuid(), "X");
    EXPECT_EQ(event.Start(), FireState::kScheduled);
}

TEST(Fires, SeekWithoutTriggerObjectIsAnError) {
    LogCapture log;
    DateTimeFire fire;
    QDateTime next;
    EXPECT_EQ(fire.SeekNextStartTime(At("2026-03-10 08:00:00"), next), FireState::kError);
    EXPECT_TRUE(log.Has(log4cpp::Priority::ERROR, "TriggerObject pointer is NULL in the DateTimeFire."));
}

TEST(Fires, EveryNewStartIsReportedAndLogged) {
    FakeClientLink link;
    LogCapture log;
    TriggerObject object = MakeTrigger("P", {2, "2026-03-01 09:30:00"});
    DateTimeFire fire;
    fire.SetTriggerObject(&object);
    QDateTime next;
    ASSERT_EQ(fire.SeekNextStartTime(At("2026-03-10 08:00:00"), next), FireState::kScheduled);
    EXPECT_EQ(next, At("2026-03-10 09:30:00"));
    ASSERT_EQ(link.CommandsOfType(601).size(), 1u);
    EXPECT_EQ(link.CommandsOfType(601)[0].nextStartTime, "2026-03-10 09:30:00");
    EXPECT_TRUE(log.Has(
        log4cpp::Priority::INFO,
        "The TimerFire of scheduler[P] next start time [2026-03-10 09:30:00] in the SeekNextStartTime."));
}

TEST(Fires, RefusedReportKeepsTheStartTime) {
    LogCapture log;
    TriggerObject object = MakeTrigger("P", {2, "2026-03-01 09:30:00"});
    DateTimeFire fire;
    fire.SetTriggerObject(&object);
    QDateTime next;
    EXPECT_EQ(fire.SeekNextStartTime(At("2026-03-10 08:00:00"), next), FireState::kScheduled);
    EXPECT_EQ(object.getNextStartTime(), "2026-03-10 09:30:00");
    EXPECT_TRUE(log.Has(log4cpp::Priority::ERROR,
                        "The TimerFire of scheduler[P] request update trigger next start time info error."));
}

TEST(TimerFire, ArmsForTheExactWait) {
    FakeClientLink link;
    ClockShift clock(At("2026-03-10 08:28:30.000"));
    TriggerObject object = MakeTrigger("T", {1, "2026-03-10 08:30:00"});
    TimerFire fire;
    fire.SetTriggerObject(&object);
    EXPECT_EQ(fire.Start(), FireState::kScheduled);
    EXPECT_TRUE(fire.isArmed());
    // The clock keeps running between the seek and the arming; allow a little.
    EXPECT_NEAR(fire.armedIntervalMSecs(), 90000, 50);
}

TEST(TimerFire, FinishedTriggerStaysIdle) {
    ClockShift clock(At("2026-03-10 09:00:00"));
    TriggerObject object = MakeTrigger("T", {1, "2026-03-10 08:30:00"});
    TimerFire fire;
    fire.SetTriggerObject(&object);
    EXPECT_EQ(fire.Start(), FireState::kFinished);
    EXPECT_FALSE(fire.isArmed());
}

TEST(TimerFire, NonPositiveWaitFailsTheFire) {
    LogCapture log;
    TriggerObject object = MakeTrigger("T", {1, "2026-03-10 08:30:00"});
    TimerFire fire;
    fire.SetTriggerObject(&object);
    fire.StartWaitTimer(0);
    EXPECT_EQ(fire.getFireState(), FireState::kError);
    EXPECT_FALSE(fire.isArmed());
    EXPECT_TRUE(log.Has(log4cpp::Priority::ERROR,
                        "The TimerFire of scheduler[T] waittime is less than or equal to 0."));
}

// A wait beyond a Qt timer's 24.8-day limit is aimed at its instant all the
// same; the time-out comes when the wall clock reaches it, not before.
TEST(TimerFire, LongWaitsAreAimedAtTheirInstant) {
    ClockShift clock(At("2026-01-01 00:00:00"));
    TriggerObject object = MakeTrigger("T", {1, "2026-06-01 00:00:00"});
    TimerFire fire;
    RecordingHost timeouts;
    fire.setHost(&timeouts);
    fire.SetTriggerObject(&object);
    fire.StartWaitTimer(At("2026-01-01 00:00:00").toMSecsSinceEpoch(),
                        At("2026-06-01 00:00:00").toMSecsSinceEpoch());
    EXPECT_EQ(fire.armedDueMSecs(), At("2026-06-01 00:00:00").toMSecsSinceEpoch());
    // Frozen: a shifted clock moves on with the real one, and a millisecond
    // would make the first look come at the due instant itself.
    Clock::freezeAt(At("2026-05-31 23:59:59.999"));
    DeadlineQueue::ForCurrentThread().Recheck();
    QCoreApplication::processEvents();
    EXPECT_TRUE(timeouts.seen.empty());
    Clock::freezeAt(At("2026-06-01 00:00:00"));
    DeadlineQueue::ForCurrentThread().Recheck();
    QCoreApplication::processEvents();
    ASSERT_EQ(timeouts.seen.size(), 1u);
    EXPECT_EQ(timeouts.seen[0].first, "T");
    EXPECT_EQ(timeouts.seen[0].second, &fire);
}

TEST(TimerFire, TimeoutAfterStopSendsNothing) {
    LogCapture log;
    TriggerObject object = MakeTrigger("T", {1, "2026-06-01 00:00:00"});
    TimerFire fire;
    RecordingHost timeouts;
    fire.setHost(&timeouts);
    fire.SetTriggerObject(&object);
    fire.Stop();
    fire.ontimeout();
    EXPECT_TRUE(timeouts.seen.empty());
    EXPECT_TRUE(log.Has(log4cpp::Priority::ERROR, "Failed to send the timerFireTimeout signal."));
    fire.onkillDateTimer();
    EXPECT_FALSE(fire.isArmed());
}
} // namespace

namespace {
// A hosted fire's runs go through its host, which records what it hands the
// agent; a fire without one talks to the link itself.
TEST(Fires, AHostedFireSendsThroughItsHost) {
    FakeClientLink link;
    TriggerObject object = MakeTrigger("hosted", {2, "2026-03-10 08:00:00"});
    RecordingHost host;
    EventerFire hosted;
    hosted.setHost(&host);
    EXPECT_TRUE(hosted.NowFire(&object));
    EventerFire alone;
    EXPECT_TRUE(alone.NowFire(&object));
    ASSERT_EQ(host.sent.size(), 1u);
    EXPECT_EQ(host.sent[0], std::make_pair(QString("hosted"), quint64{600}));
    EXPECT_EQ(link.Commands().size(), 1u);
}

// A fire started on another thread (a plan command's) leaves its arming to
// its host, which arms it on its home thread.
TEST(TimerFire, AnArmingFromAnotherThreadIsLeftToTheHost) {
    ClockShift clock(At("2026-03-10 08:00:00"));
    const size_t queued = DeadlineQueue::ForCurrentThread().size();
    TriggerObject object = MakeTrigger("T", {1, "2026-03-10 09:00:00"});
    RecordingHost host;
    TimerFire fire;
    fire.setHost(&host);
    fire.SetTriggerObject(&object);
    std::thread([&fire] { fire.StartWaitTimer(3600 * 1000); }).join();
    EXPECT_FALSE(fire.isArmed());
    EXPECT_EQ(DeadlineQueue::ForCurrentThread().size(), queued);
    ASSERT_EQ(host.armings.size(), 1u);
    EXPECT_EQ(host.armings[0].planUuid, "T");
    EXPECT_EQ(host.armings[0].dueMSecs, At("2026-03-10 09:00:00").toMSecsSinceEpoch());
    EXPECT_EQ(host.armings[0].interval, 3600 * 1000);
}
} // namespace
