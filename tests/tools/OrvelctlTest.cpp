// orvelctl as its users run it: the plan road through the real
// service and the stand-in agent.
#include "support/ServiceProcess.h"
#include "support/ToolRun.h"

#include "framework/DatabaseFunctionOperation.h"
#include "framework/TriggerAttribute.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

namespace {
ToolRun Orvelctl(const QString& program, const QStringList& arguments) {
    return ToolRun::Of(program, arguments);
}

// The whole road: orvelctl records the plan and sends it, the service fires
// it, and the stand-in agent prints the execute-trigger command.
class PlanRoad : public ::testing::Test {
protected:
    void SetUp() override {
        QFile::copy(QString(ORVEL_BIN_DIR) + "/orvelctl", Tool());
        agent.start(Tool(), {"agent", "--port", "0"});
        ASSERT_TRUE(agent.waitForStarted());
        static const QRegularExpression listening("listening on \\S+:(\\d+)");
        QRegularExpressionMatch match;
        ASSERT_TRUE(QTest::qWaitFor([&] { return (match = listening.match(agentErr())).hasMatch(); }, 10000));
        folder.WriteConfig(0, static_cast<quint16>(match.captured(1).toUInt()));
        ASSERT_TRUE(service.Start());
        port = service.WaitForCommandPort();
        ASSERT_NE(port, 0);
    }
    void TearDown() override {
        agent.terminate();
        agent.waitForFinished(10000);
    }

    QString Tool() const { return folder.Path("orvelctl"); }
    ToolRun Plan(const QStringList& arguments) const {
        return Orvelctl(Tool(),
                        QStringList{"plan"} + arguments + QStringList{"--port", QString::number(port)});
    }
    QString agentErr() {
        m_agentErr += QString::fromUtf8(agent.readAllStandardError());
        return m_agentErr;
    }
    QString agentOut() {
        m_agentOut += QString::fromUtf8(agent.readAllStandardOutput());
        return m_agentOut;
    }
    bool AgentPrints(const QString& part) {
        return QTest::qWaitFor([&] { return agentOut().contains(part); }, 10000);
    }

    ServiceFolder folder;
    ServiceProcess service{folder};
    QProcess agent;
    quint16 port = 0;
    QString m_agentErr;
    QString m_agentOut;
};

TEST_F(PlanRoad, AddRunDeleteThroughTheRealService) {
    const ToolRun added = Plan({"add", "--plan", "demo-once", "--type", "1", "--start", ""});
    EXPECT_EQ(added.code, 0) << added.err.toStdString();
    EXPECT_TRUE(added.out.contains("result 0"));
    EXPECT_TRUE(AgentPrints(" 600 demo-once ")) << agentOut().toStdString();
    EXPECT_TRUE(AgentPrints(" 601 demo-once "));

    EXPECT_EQ(Plan({"add", "--plan", "demo-once", "--type", "1", "--start", ""}).code, 1);
    EXPECT_EQ(Plan({"delete", "--plan", "demo-once"}).code, 0);
    EXPECT_EQ(Plan({"delete", "--plan", "demo-once"}).code, 1);

    const ToolRun event = Plan({"modify", "--plan", "at-logon", "--event", "logon"});
    EXPECT_EQ(event.code, 0) << event.err.toStdString();
    EXPECT_EQ(Plan({"add", "--plan", "x", "--event", "reboot"}).code, 2);
}

TEST_F(PlanRoad, WithoutTheServiceThePlanIsStillRecorded) {
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit());
    // A port that is ours and refuses, so that no other test's service answers.
    ReservedPort nobody;
    const ToolRun run = Orvelctl(Tool(), {"plan", "add", "--plan", "offline", "--type", "2", "--start",
                                          "2026-01-01 02:00:00", "--port", QString::number(nobody.port())});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err.count('\n'), 1);
    EXPECT_TRUE(run.err.contains("No scheduler service is listening"));
    DatabaseFunctionOperation database;
    ASSERT_TRUE(database.Init(folder.Path("data/alldb.db")));
    QHash<QString, TriggerAttribute*> stored;
    ASSERT_TRUE(database.LoadTriggerAttributes(stored));
    ASSERT_TRUE(stored.contains("offline"));
    EXPECT_EQ(stored.value("offline")->getTriggerType(), 2u);
    qDeleteAll(stored);

    // At its next start the service loads the plan and reports its first start.
    ServiceProcess restarted(folder);
    ASSERT_TRUE(restarted.Start());
    EXPECT_TRUE(AgentPrints(" 601 offline ")) << agentOut().toStdString();
}
} // namespace

namespace {
TEST(PlanAccess, AUserWhoMayNotChangePlansIsToldSoInOneLine) {
    if (::geteuid() != 0 || QStandardPaths::findExecutable("setpriv").isEmpty()) {
        GTEST_SKIP() << "needs root and setpriv to act as another user";
    }
    const ToolRun run =
        Orvelctl("setpriv", {"--reuid=nobody", "--regid=nogroup", "--clear-groups", "--",
                             QString(ORVEL_BIN_DIR) + "/orvelctl", "plan", "delete", "--plan", "nightly"});
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(run.out.isEmpty());
    EXPECT_EQ(run.err, "not allowed: user nobody (65534) is not in AllowedUsers or AllowedGroups\n");
}
} // namespace
