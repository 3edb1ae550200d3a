// The real service in timer mode under a preloaded clock library that moves
// its wall clock while its monotonic clock runs on: to the process that is
// what a clock step or a suspend looks like.
#include "support/AgentStandIn.h"
#include "support/FakeWallClock.h"
#include "support/ServiceProcess.h"

#include "framework/Clock.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

namespace {
TEST(ClockStep, AOncePlanThatAStepPassesOverRunsWithinAMinuteOnce) {
    ASSERT_TRUE(FakeWallClock::Unavailable().isEmpty()) << FakeWallClock::Unavailable().toStdString();
    FakeWallClock clock(Clock::now());
    ServiceFolder folder(1);
    const QString due = Clock::now().addSecs(300).toString("yyyy-MM-dd hh:mm:ss");
    folder.StorePlan("passed-over", 1, due);
    AgentStandIn agent(folder.agentPort());
    ServiceProcess service(folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    clock.Apply(environment);
    service.process().setProcessEnvironment(environment);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 20000));
    ASSERT_TRUE(service.WaitForLog(
        QString("The TimerFire of scheduler[passed-over] next start time [%1] in the SeekNextStartTime.")
            .arg(due),
        10000));
    EXPECT_EQ(agent.CountOf(600, "passed-over"), 0);

    clock.MoveBy(360);
    QElapsedTimer sinceStep;
    sinceStep.start();
    ASSERT_TRUE(agent.WaitFor(600, "passed-over", 75000));
    EXPECT_LE(sinceStep.elapsed(), 70000);
    // The run ends the once plan; nothing runs it a second time.
    ASSERT_TRUE(
        service.WaitForLog("The TimerFire of scheduler[passed-over] trigger execution finished.", 10000));
    EXPECT_EQ(agent.CountOf(600, "passed-over"), 1);
}
} // namespace
