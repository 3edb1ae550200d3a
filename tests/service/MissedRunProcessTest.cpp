// Missed starts and agent outages on the real service, its wall clock moved by
// libfaketime while its monotonic clock runs on.
#include "support/AgentStandIn.h"
#include "support/FakeWallClock.h"
#include "support/FakedService.h"
#include "support/NotifySocket.h"
#include "support/ServiceProcess.h"

#include "framework/DatabaseFunctionOperation.h"
#include "framework/TriggerAttribute.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>
#include <optional>

namespace {
const QString kPlan = "nightly";

void StorePlan(ServiceFolder& folder, const QString& planUuid, quint64 intervalSecs, const QString& start) {
    TriggerAttribute attribute;
    attribute.setTriggerType(2);
    attribute.setStartTime(start);
    attribute.setInterval(intervalSecs);
    folder.StorePlan(planUuid, attribute);
}

class MissedRunProcess : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (!FakeWallClock::Unavailable().isEmpty()) {
            GTEST_SKIP() << FakeWallClock::Unavailable().toStdString();
        }
    }
};

// A daily plan runs, the service stops, a day and ten minutes pass, the service
// starts again: with once the plan runs once at once, with skip not at all.
TEST_P(MissedRunProcess, DowntimeOverADailyStart) {
    const bool once = QString(GetParam()) == "once";
    ServiceFolder folder;
    folder.SetMissedRunPolicy(GetParam());
    StorePlan(folder, kPlan, 0, "2026-03-01 02:00:00");
    FakeWallClock clock(QDateTime::fromString("2026-03-10 01:59:55", "yyyy-MM-dd hh:mm:ss"));
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(agent.WaitFor(600, kPlan, 30000));
    // A clean stop writes the last batch of run state.
    ASSERT_TRUE(service.Stop());

    clock.MoveBy(86400 + 600);
    const int reportsBefore = agent.CountOf(601, kPlan);
    NotifySocket notify(folder.Path("notify"));
    ASSERT_TRUE(service.Start());
    // The first poll reports the plan's next start; a catch-up comes before it.
    ASSERT_TRUE(QTest::qWaitFor([&] { return agent.CountOf(601, kPlan) > reportsBefore; }, 70000));
    if (once) {
        ASSERT_TRUE(QTest::qWaitFor([&] { return agent.CountOf(600, kPlan) == 2; }, 70000));
    }
    EXPECT_EQ(agent.CountOf(600, kPlan), once ? 2 : 1);
    // Info lines reach the file up to 100 ms after the run reached the agent.
    const QString caughtUp = "missed its start [2026-03-11 02:00:00]; caught up with one run";
    if (once) {
        EXPECT_TRUE(QTest::qWaitFor([&] { return service.CountLog(caughtUp) > 0; }, 10000));
    }
    EXPECT_EQ(service.CountLog(caughtUp), once ? 1 : 0);

    // The first poll's schedule reaches the state file with its batch.
    const QStringList status = {"status", "--state", folder.Path("data/state.db"), "--port",
                                QString::number(service.process().WaitForCommandPort())};
    QString out;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            QProcess orvelctl;
            orvelctl.start(QString(ORVEL_BIN_DIR) + "/orvelctl", status);
            orvelctl.waitForFinished(20000);
            out = QString::fromUtf8(orvelctl.readAllStandardOutput());
            return out.contains(QRegExp("\\n2026-03-12 02:00:00 .* daily +nightly\\n"));
        },
        20000))
        << out.toStdString();
    EXPECT_TRUE(out.startsWith("The scheduler service is running")) << out.toStdString();
    // systemd's one line follows the schedule too.
    EXPECT_TRUE(notify.WaitFor("STATUS=1 plan; next: nightly at 2026-03-12 02:00:00"))
        << notify.received().join('\n').toStdString();
    ASSERT_TRUE(service.Stop());
}

INSTANTIATE_TEST_SUITE_P(Policies, MissedRunProcess, ::testing::Values("once", "skip"));

// The agent is away while an every-minute plan misses five minutes: when it is
// back it gets that plan's run once, within seconds.
TEST(AgentOutage, FiveMissedRunsReachTheReturningAgentAsOne) {
    if (!FakeWallClock::Unavailable().isEmpty()) {
        GTEST_SKIP() << FakeWallClock::Unavailable().toStdString();
    }
    ServiceFolder folder;
    StorePlan(folder, kPlan, 60, "2026-03-01 10:00:00");
    FakeWallClock clock(QDateTime::fromString("2026-03-10 09:59:56", "yyyy-MM-dd hh:mm:ss"));
    const quint16 agentPort = folder.agentPort().port();
    std::optional<AgentStandIn> agent(std::in_place, folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(agent->WaitFor(600, kPlan, 30000));
    agent.reset();

    const QString fired = "The AtTimeFire of scheduler[nightly] NowFire execution success";
    for (int minute = 1; minute <= 5; ++minute) {
        clock.MoveBy(60);
        ASSERT_TRUE(QTest::qWaitFor([&] { return service.CountLog(fired) == 1 + minute; }, 30000)) << minute;
    }
    QElapsedTimer back;
    back.start();
    agent.emplace(agentPort);
    ASSERT_TRUE(agent->WaitFor(600, kPlan, 10000));
    EXPECT_LE(back.elapsed(), 10000);
    // What waited has all gone out once the newest trigger-info is there.
    ASSERT_TRUE(agent->WaitFor(601, kPlan, 10000));
    EXPECT_EQ(agent->CountOf(600, kPlan), 1);
    EXPECT_EQ(service.CountLog("Runs of plan[nightly] that wait for the agent"), 1);
    ASSERT_TRUE(service.Stop());
}
} // namespace

namespace {
// "ok" and the number of rows, as the next reader finds the file.
QPair<QString, int> Inspect(const QString& path) {
    QPair<QString, int> found;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "inspect");
        db.setDatabaseName(path);
        db.open();
        QSqlQuery query(db);
        query.exec("PRAGMA integrity_check");
        query.next();
        found.first = query.value(0).toString();
        query.exec("SELECT count(*) FROM runs");
        query.next();
        found.second = query.value(0).toInt();
    }
    QSqlDatabase::removeDatabase("inspect");
    return found;
}
} // namespace

// A kill while the first poll's rows are being written loses the batch under
// way or keeps it whole, and never damages the file. The first poll runs in
// slices, so its 20,000 rows may be written in several batches.
TEST(RunStateCrash, AKillInTheMiddleOfABatchLeavesAWholeFile) {
    constexpr int kPlans = 20000;
    ServiceFolder folder;
    folder.StoreDailyPlans(kPlans, [](int i) {
        return QString("2026-03-01 %1:%2:00")
            .arg(i / 60 % 24, 2, 10, QChar('0'))
            .arg(i % 60, 2, 10, QChar('0'));
    });
    AgentStandIn agent(folder.agentPort());
    const QString state = folder.Path("data/state.db");
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        QFile::remove(folder.Path("log/schedulerservice.log"));
        ServiceProcess service(folder);
        const qint64 walBefore = QFileInfo(state + "-wal").size();
        ASSERT_TRUE(service.Start());
        // The batch is under way once the write-ahead log grows.
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return QFileInfo(state + "-wal").size() > walBefore + 4096; }, 60000));
        service.Signal(SIGKILL);
        ASSERT_TRUE(service.WaitForExit(20000));
        const QPair<QString, int> found = Inspect(state);
        EXPECT_EQ(found.first, "ok");
        EXPECT_TRUE(found.second >= 0 && found.second <= kPlans) << found.second;
    }
    ServiceProcess service(folder);
    QFile::remove(folder.Path("log/schedulerservice.log"));
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 60000));
    EXPECT_TRUE(service.LogMessages().filter("run state file").isEmpty())
        << service.LogMessages().join('\n').toStdString();
    // The first poll reports every plan over a few slices; all reach the file.
    EXPECT_TRUE(QTest::qWaitFor([&] { return Inspect(state) == qMakePair(QString("ok"), kPlans); }, 60000));
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit(20000));
    EXPECT_EQ(Inspect(state), qMakePair(QString("ok"), kPlans));
}
