// Restarts of the real service, ended by SIGTERM and by kill -9, its wall clock
// moved by libfaketime over the time it is down: a restart never changes what
// runs when.
#include "support/AgentStandIn.h"
#include "support/FakeWallClock.h"
#include "support/FakedService.h"

#include "framework/TriggerAttribute.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>
#include <iostream>

namespace {
TriggerAttribute Plan(quint64 type, const QString& start, quint64 interval,
                      const QString& weekDays = QString()) {
    TriggerAttribute attribute;
    attribute.setTriggerType(type);
    attribute.setStartTime(start);
    attribute.setInterval(interval);
    attribute.setWeekDays(weekDays);
    return attribute;
}

// Rows of plans whose progress the run state keeps.
int ResumableRows(const QString& path) {
    int rows = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "resumable");
        db.setDatabaseName(path);
        if (db.open()) {
            QSqlQuery query(db);
            query.exec("SELECT count(*) FROM runs WHERE fingerprint > 0 AND first_seek = 1");
            rows = query.next() ? query.value(0).toInt() : 0;
        }
    }
    QSqlDatabase::removeDatabase("resumable");
    return rows;
}

class FakedClockTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!FakeWallClock::Unavailable().isEmpty()) {
            GTEST_SKIP() << FakeWallClock::Unavailable().toStdString();
        }
    }
};

class Restarts : public FakedClockTest, public ::testing::WithParamInterface<quint64> {};

// A first start records the plans; six more follow, 25 s apart on the wall
// clock, five ended by SIGTERM and one by kill -9. The hourly and the
// two-hourly weekly plan are 40 minutes away: no run. The one-time and the
// daily plan fall due within the window: one run each. The every-minute plan
// with an empty start runs at most once a minute, at the same second.
TEST_P(Restarts, SixRestartsRunEachDueStartOnceAndNothingElse) {
    ServiceFolder folder(GetParam());
    folder.SetMissedRunPolicy("once");
    folder.StorePlan("hourly", Plan(2, "2026-03-10 10:40:10", 3600));
    folder.StorePlan("weekly", Plan(3, "2026-03-01 10:40:10", 7200, "1,2,3,4,5,6,7"));
    folder.StorePlan("once", Plan(1, "2026-03-10 10:01:10", 0));
    folder.StorePlan("daily", Plan(2, "2026-03-01 10:02:00", 0));
    folder.StorePlan("minutely", Plan(2, "", 60));
    FakeWallClock clock(QDateTime::fromString("2026-03-10 10:00:10", "yyyy-MM-dd hh:mm:ss"));
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(QTest::qWaitFor([&] { return ResumableRows(folder.Path("data/state.db")) == 5; }, 20000));
    ASSERT_TRUE(service.Stop());

    constexpr int kRestarts = 6;
    constexpr int kKilledStart = 4;
    for (int start = 1; start <= kRestarts; ++start) {
        SCOPED_TRACE(start);
        clock.MoveBy(23);
        ASSERT_TRUE(service.Start());
        EXPECT_EQ(service.CountLog("5 of 5 plans resume their schedule"), 1);
        // Up for two seconds of its clock: long enough for every due start
        // and catch-up, short enough for the window.
        const QDateTime upUntil = clock.Now().addSecs(2);
        ASSERT_TRUE(QTest::qWaitFor([&] { return clock.Now() >= upUntil; }, 10000));
        ASSERT_TRUE(start == kKilledStart ? service.Kill() : service.Stop());
    }

    EXPECT_EQ(agent.CountOf(600, "hourly"), 0);
    EXPECT_EQ(agent.CountOf(600, "weekly"), 0);
    EXPECT_EQ(agent.DueStartsOf("once"), QStringList{"2026-03-10 10:01:10"});
    EXPECT_EQ(agent.DueStartsOf("daily"), QStringList{"2026-03-10 10:02:00"});
    const QStringList minutely = agent.DueStartsOf("minutely");
    EXPECT_EQ(minutely, (QStringList{"2026-03-10 10:01:00", "2026-03-10 10:02:00"}));
}

int RunsReceived(const AgentStandIn& agent) {
    return agent.Received().filter(QRegularExpression("^600 ")).size();
}

// 1,000 plans are due in one minute. The service is killed about 50 ms after
// the first run reached the agent and started again at once, with policy
// once. Every plan receives its run for that start; a plan receives two only
// when its run left inside the last batch the run state had not written.
class BurstKill : public FakedClockTest, public ::testing::WithParamInterface<std::tuple<quint64, int>> {};

TEST_P(BurstKill, LosesNoStart) {
    constexpr int kPlans = 1000;
    const quint64 mode = std::get<0>(GetParam());
    const int killAfterMSecs = std::get<1>(GetParam());
    ServiceFolder folder(mode);
    folder.SetMissedRunPolicy("once");
    folder.StoreDailyPlans(kPlans, [](int) { return QString("2026-03-01 10:01:00"); });
    FakeWallClock clock(QDateTime::fromString("2026-03-10 10:00:52", "yyyy-MM-dd hh:mm:ss"));
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(QTest::qWaitFor([&] { return RunsReceived(agent) > 0; }, 60000));
    QElapsedTimer sinceFirst;
    sinceFirst.start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return sinceFirst.elapsed() >= killAfterMSecs; }, 10000));
    ASSERT_TRUE(service.Kill());

    ASSERT_TRUE(service.Start());
    QSet<QString> dueStarts;
    int plansRun = 0;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            plansRun = 0;
            for (int i = 0; i < kPlans; ++i) {
                const QStringList starts = agent.DueStartsOf(QString("plan-%1").arg(i));
                plansRun += starts.isEmpty() ? 0 : 1;
                dueStarts.unite(QSet<QString>(starts.begin(), starts.end()));
            }
            return plansRun == kPlans;
        },
        60000))
        << plansRun;
    // What the restarted service sends at once has gone out with its report of
    // the next starts.
    ASSERT_TRUE(QTest::qWaitFor([&] { return service.CountLog("next start time [2026-03-11 10:01:00]") > 0; },
                                20000));
    const int duplicates = RunsReceived(agent) - kPlans;
    // The runs that left the killed service, some still on their way when it
    // died.
    const QList<quint64> connections = agent.RunConnections();
    const int beforeKill = static_cast<int>(connections.count(connections.first()));
    std::cout << "[ figure   ] kill -9 " << killAfterMSecs << " ms after the first run of a burst of "
              << kPlans << " (" << (mode == 1 ? "timer" : "poll") << " mode): " << beforeKill
              << " runs had left it, " << duplicates << " plans received their run twice\n";
    RecordProperty("duplicates", duplicates);
    EXPECT_EQ(dueStarts, QSet<QString>{"2026-03-10 10:01:00"});
    EXPECT_GE(duplicates, 0);
    EXPECT_LE(duplicates, beforeKill);
}

INSTANTIATE_TEST_SUITE_P(Modes, Restarts, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<quint64>& info) {
                             return std::string(info.param == 1 ? "timer" : "poll");
                         });

INSTANTIATE_TEST_SUITE_P(Modes, BurstKill,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Values(0, 50)),
                         [](const ::testing::TestParamInfo<std::tuple<quint64, int>>& info) {
                             return std::string(std::get<0>(info.param) == 1 ? "timer" : "poll") + "_" +
                                    std::to_string(std::get<1>(info.param)) + "ms";
                         });

// The process is frozen (SIGSTOP) for 150 s of its wall clock and thawed, in
// timer mode with policy once and a spread of 30 s. Twenty every-minute plans
// due at twenty different seconds each run once for what they missed, then
// each at its own seconds again, never twice for one start.
TEST_F(FakedClockTest, AFrozenProcessCatchesUpOnceAndEveryPlanKeepsItsSeconds) {
    constexpr int kPlans = 20;
    ServiceFolder folder(1);
    folder.SetMissedRunPolicy("once", 30);
    const auto planOf = [](int i) { return QString("minute-%1").arg(i); };
    for (int i = 0; i < kPlans; ++i) {
        folder.StorePlan(planOf(i), Plan(2, QString("2026-03-10 10:01:%1").arg(i, 2, 10, QChar('0')), 60));
    }
    FakeWallClock clock(QDateTime::fromString("2026-03-10 10:00:40", "yyyy-MM-dd hh:mm:ss"));
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    // A first life schedules the plans; the second resumes them, so that
    // each counts as scheduled before the freeze.
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return ResumableRows(folder.Path("data/state.db")) == kPlans; }, 20000));
    ASSERT_TRUE(service.Stop());
    ASSERT_TRUE(service.Start());
    const auto everyPlanRan = [&](int runs) {
        for (int i = 0; i < kPlans; ++i) {
            if (agent.DueStartsOf(planOf(i)).size() < runs) {
                return false;
            }
        }
        return true;
    };

    service.process().Signal(SIGSTOP);
    clock.MoveBy(150);
    const QString thawed = clock.Now().toString("yyyy-MM-dd hh:mm:ss");
    service.process().Signal(SIGCONT);
    // The catch-up, and the report of the plan's own next start after the
    // thaw.
    const auto nextAfterThaw = [&](int i) {
        const QStringList reported = agent.ReportedStartsOf(planOf(i));
        return !reported.isEmpty() && reported.last() > thawed ? reported.last() : QString();
    };
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            for (int i = 0; i < kPlans; ++i) {
                if (nextAfterThaw(i).isEmpty()) {
                    return false;
                }
            }
            return everyPlanRan(1);
        },
        90000));
    ASSERT_TRUE(service.Stop());

    for (int i = 0; i < kPlans; ++i) {
        SCOPED_TRACE(i);
        const QStringList starts = agent.DueStartsOf(planOf(i)) << nextAfterThaw(i);
        const QString seconds = QString(":%1").arg(i, 2, 10, QChar('0'));
        EXPECT_EQ(starts.filter(QRegularExpression(seconds + "$")).size(), starts.size())
            << starts.join(' ').toStdString();
        EXPECT_EQ(QSet<QString>(starts.begin(), starts.end()).size(), starts.size())
            << starts.join(' ').toStdString();
        // One run for what the freeze missed, then the plan's own next start.
        QStringList missed;
        for (const QString& start : starts) {
            if (start < thawed.left(16)) {
                missed << start;
            }
        }
        EXPECT_EQ(missed.size(), 1) << starts.join(' ').toStdString();
    }
}
} // namespace
