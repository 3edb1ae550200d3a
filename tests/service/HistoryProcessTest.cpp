// What `orvelctl history` says of the real service's starts, its wall clock
// moved by libfaketime while its monotonic clock runs on: a step over a start,
// downtime over a daily start, an agent outage, a refusing agent and a
// spring-forward night.
#include "support/AgentStandIn.h"
#include "support/FakeWallClock.h"
#include "support/FakedService.h"
#include "support/ServiceProcess.h"

#include "framework/TriggerAttribute.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>
#include <optional>

namespace {
const QString kPlan = "backup";

void StorePlan(ServiceFolder& folder, quint64 type, quint64 intervalSecs, const QString& start) {
    TriggerAttribute attribute;
    attribute.setTriggerType(type);
    attribute.setStartTime(start);
    attribute.setInterval(intervalSecs);
    folder.StorePlan(kPlan, attribute);
}

// The plan's occurrences as orvelctl history --json gives them, newest first,
// with the times of the service's zone.
QJsonArray History(ServiceFolder& folder, const char* zone = "UTC") {
    QProcess orvelctl;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TZ", zone);
    orvelctl.setProcessEnvironment(environment);
    orvelctl.start(QString(ORVEL_BIN_DIR) + "/orvelctl",
                   {"history", "--state", folder.Path("data/state.db"), "--plan", kPlan, "--json"});
    orvelctl.waitForFinished(20000);
    return QJsonDocument::fromJson(orvelctl.readAllStandardOutput()).object().value("occurrences").toArray();
}

// Waits until the history holds a row for `due` that `holds` accepts; the row
// reaches the file with its batch, a little after the run.
QJsonObject WaitForRow(ServiceFolder& folder, const QString& due,
                       const std::function<bool(const QJsonObject&)>& holds, const char* zone = "UTC",
                       int timeoutMSecs = 30000) {
    QJsonObject found;
    // An empty row when none comes; the caller's checks then say what is missing.
    (void)QTest::qWaitFor(
        [&] {
            for (const QJsonValue& row : History(folder, zone)) {
                if (row.toObject().value("due").toString() == due && holds(row.toObject())) {
                    found = row.toObject();
                    return true;
                }
            }
            return false;
        },
        timeoutMSecs);
    return found;
}

// The service's zone for one start, taken from the environment it inherits.
class ServiceZone {
public:
    explicit ServiceZone(const char* zone) : m_saved(qgetenv("TZ")) { qputenv("TZ", zone); }
    ~ServiceZone() { qputenv("TZ", m_saved); }
    ServiceZone(const ServiceZone&) = delete;
    ServiceZone& operator=(const ServiceZone&) = delete;

private:
    QByteArray m_saved;
};

class HistoryProcess : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(FakeWallClock::Unavailable().isEmpty()) << FakeWallClock::Unavailable().toStdString();
    }
};

struct StepRow {
    const char* name;
    quint64 fireType;
    const char* outcome;
};

class ForwardStep : public HistoryProcess, public ::testing::WithParamInterface<StepRow> {};

// A once plan five minutes ahead, and the clock stepped six minutes on: timer
// mode runs it late, polling mode's minute passed without it.
TEST_P(ForwardStep, OverAStartIsNamedAClockStep) {
    ServiceFolder folder(GetParam().fireType);
    StorePlan(folder, 1, 0, "2026-03-10 10:05:00");
    FakeWallClock clock(QDateTime::fromString("2026-03-10 10:00:00", "yyyy-MM-dd hh:mm:ss"));
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    clock.MoveBy(360);
    // Timer mode reads the wall clock again within a minute.
    const QJsonObject row = WaitForRow(
        folder, "2026-03-10 10:05:00", [](const QJsonObject&) { return true; }, "UTC", 75000);
    EXPECT_EQ(row.value("outcome").toString(), GetParam().outcome);
    EXPECT_EQ(row.value("reason").toString(), "clock stepped");
}

INSTANTIATE_TEST_SUITE_P(Modes, ForwardStep,
                         ::testing::Values(StepRow{"timer", 1, "late"}, StepRow{"polling", 0, "missed"}),
                         [](const ::testing::TestParamInfo<StepRow>& info) {
                             return std::string(info.param.name);
                         });

struct DowntimeRow {
    const char* policy;
    const char* outcome;
};

class Downtime : public HistoryProcess, public ::testing::WithParamInterface<DowntimeRow> {};

// A daily plan runs, the service stops, a day and ten minutes pass.
TEST_P(Downtime, OverADailyStartIsNamedServiceDown) {
    ServiceFolder folder;
    folder.SetMissedRunPolicy(GetParam().policy);
    StorePlan(folder, 2, 0, "2026-03-01 02:00:00");
    FakeWallClock clock(QDateTime::fromString("2026-03-10 01:59:55", "yyyy-MM-dd hh:mm:ss"));
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(agent.WaitFor(600, kPlan, 30000));
    ASSERT_TRUE(service.Stop());
    clock.MoveBy(86400 + 600);
    ASSERT_TRUE(service.Start());
    const QJsonObject row =
        WaitForRow(folder, "2026-03-11 02:00:00", [](const QJsonObject&) { return true; });
    EXPECT_EQ(row.value("outcome").toString(), GetParam().outcome);
    EXPECT_EQ(row.value("reason").toString(), "service down");
    EXPECT_EQ(WaitForRow(folder, "2026-03-10 02:00:00", [](const QJsonObject&) { return true; })
                  .value("outcome")
                  .toString(),
              "on-time");
}

INSTANTIATE_TEST_SUITE_P(Policies, Downtime,
                         ::testing::Values(DowntimeRow{"once", "caught-up"}, DowntimeRow{"skip", "missed"}),
                         [](const ::testing::TestParamInfo<DowntimeRow>& info) {
                             return std::string(info.param.policy);
                         });

// The agent is away over five starts of an every-minute plan: one run reaches
// it when it is back, standing for the four before it.
TEST_F(HistoryProcess, AnAgentOutageMergesFourStartsIntoOneRun) {
    ServiceFolder folder;
    StorePlan(folder, 2, 60, "2026-03-01 10:00:00");
    FakeWallClock clock(QDateTime::fromString("2026-03-10 09:59:56", "yyyy-MM-dd hh:mm:ss"));
    const quint16 agentPort = folder.agentPort().port();
    std::optional<AgentStandIn> agent(std::in_place, folder.agentPort());
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(agent->WaitFor(600, kPlan, 30000));
    // Gone after it answered: a run it never answered would be sent again.
    ASSERT_FALSE(WaitForRow(folder, "2026-03-10 10:00:00", [](const QJsonObject& row) {
                     return !row.value("result").isNull();
                 }).isEmpty());
    agent.reset();
    for (int minute = 1; minute <= 5; ++minute) {
        clock.MoveBy(60);
        const QString due = QString("2026-03-10 10:0%1:00").arg(minute);
        ASSERT_FALSE(WaitForRow(folder, due, [](const QJsonObject&) { return true; }).isEmpty()) << minute;
    }
    agent.emplace(agentPort);
    ASSERT_TRUE(agent->WaitFor(600, kPlan, 10000));
    const QJsonObject run = WaitForRow(folder, "2026-03-10 10:05:00", [](const QJsonObject& row) {
        return row.value("merged").toInt() == 4;
    });
    EXPECT_EQ(run.value("merged").toInt(), 4);
    int merged = 0;
    for (const QJsonValue& row : History(folder)) {
        merged += row.toObject().value("outcome").toString() == "merged" ? 1 : 0;
    }
    EXPECT_EQ(merged, 4) << QJsonDocument(History(folder)).toJson().toStdString();
}

// orvelctl's stand-in agent refuses the plan's runs.
TEST_F(HistoryProcess, ARefusedRunSaysSo) {
    QProcess refusing;
    refusing.start(QString(ORVEL_BIN_DIR) + "/orvelctl", {"agent", "--port", "0", "--refuse", kPlan});
    QString listening;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            listening += QString::fromUtf8(refusing.readAllStandardError());
            return listening.contains("listening on");
        },
        10000));
    const quint16 port = QRegularExpression(":(\\d+)").match(listening).captured(1).toUShort();
    ServiceFolder folder;
    folder.WriteConfig(0, port);
    StorePlan(folder, 1, 0, "2026-03-10 10:00:05");
    FakeWallClock clock(QDateTime::fromString("2026-03-10 10:00:00", "yyyy-MM-dd hh:mm:ss"));
    FakedService service(folder, clock);
    ASSERT_TRUE(service.Start());
    const QJsonObject row = WaitForRow(folder, "2026-03-10 10:00:05",
                                       [](const QJsonObject& row) { return !row.value("result").isNull(); });
    EXPECT_EQ(row.value("result").toInt(), 1);
    EXPECT_EQ(row.value("resultText").toString(), "refused");
    refusing.terminate();
    refusing.waitForFinished(10000);
}

// A daily 02:30 plan over the night Berlin's clocks go from 02:00 to 03:00.
TEST_F(HistoryProcess, ASpringForwardNightMovesTheStartOnByTheGap) {
    ServiceFolder folder;
    StorePlan(folder, 2, 0, "2026-03-01 02:30:00");
    // 01:59:50 CET is 00:59:50 UTC; the moved start, 03:30 CEST, is 01:30 UTC.
    QDateTime start = QDateTime::fromString("2026-03-29 00:59:50", "yyyy-MM-dd hh:mm:ss");
    start.setTimeSpec(Qt::UTC);
    FakeWallClock clock(start.toLocalTime());
    AgentStandIn agent(folder.agentPort());
    FakedService service(folder, clock);
    {
        ServiceZone zone("Europe/Berlin");
        ASSERT_TRUE(service.Start());
    }
    clock.MoveBy(1800);
    ASSERT_TRUE(agent.WaitFor(600, kPlan, 30000));
    const QJsonObject row = WaitForRow(
        folder, "2026-03-29 03:30:00", [](const QJsonObject&) { return true; }, "Europe/Berlin");
    EXPECT_EQ(row.value("outcome").toString(), "moved");
    EXPECT_EQ(row.value("reason").toString(), "daylight-saving gap");
}
} // namespace
