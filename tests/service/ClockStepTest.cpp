// The real service in timer mode under a preloaded clock library that moves
// its wall clock while its monotonic clock runs on: to the process that is
// what a clock step or a suspend looks like.
#include "support/AgentStandIn.h"
#include "support/ServiceProcess.h"

#include "framework/Clock.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
const char* const kFaketime = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1";

bool Sanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

// A relative offset of the service's wall clock, in libfaketime's form.
void SetOffset(const QString& path, const char* offset) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(offset);
}

TEST(ClockStep, AOncePlanThatAStepPassesOverRunsWithinAMinuteOnce) {
    if (!QFile::exists(kFaketime)) {
        GTEST_SKIP() << "libfaketime is not installed";
    }
    if (Sanitized()) {
        GTEST_SKIP() << "a preloaded clock library cannot come before the sanitizer's runtime";
    }
    QTemporaryDir stampDir;
    const QString stamp = stampDir.path() + "/offset";
    SetOffset(stamp, "+0");
    ServiceFolder folder(1);
    const QString due = Clock::now().addSecs(300).toString("yyyy-MM-dd hh:mm:ss");
    folder.StorePlan("passed-over", 1, due);
    AgentStandIn agent(folder.agentPort());
    ServiceProcess service(folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LD_PRELOAD", kFaketime);
    environment.insert("FAKETIME_DONT_FAKE_MONOTONIC", "1");
    environment.insert("FAKETIME_TIMESTAMP_FILE", stamp);
    environment.insert("FAKETIME_CACHE_DURATION", "1");
    service.process().setProcessEnvironment(environment);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 20000));
    ASSERT_TRUE(service.WaitForLog(
        QString("The TimerFire of scheduler[passed-over] next start time [%1] in the SeekNextStartTime.")
            .arg(due),
        10000));
    EXPECT_EQ(agent.CountOf(600, "passed-over"), 0);

    SetOffset(stamp, "+360");
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
