// Restarts of the real service, ended by SIGTERM and by kill -9, its wall clock
// moved by libfaketime over the time it is down: a restart never changes what
// runs when.
#include "support/AgentStandIn.h"
#include "support/FakeWallClock.h"
#include "support/FakedService.h"

#include "framework/TriggerAttribute.h"

#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <gtest/gtest.h>

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

class Restarts : public ::testing::TestWithParam<quint64> {
protected:
    void SetUp() override {
        if (!FakeWallClock::Unavailable().isEmpty()) {
            GTEST_SKIP() << FakeWallClock::Unavailable().toStdString();
        }
    }
};

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

INSTANTIATE_TEST_SUITE_P(Modes, Restarts, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<quint64>& info) {
                             return std::string(info.param == 1 ? "timer" : "poll");
                         });
} // namespace
