// Session events from a stand-in logind on a private bus reach the event
// triggers of the real service, and a lost bus does not stop it.
#include "support/AgentStandIn.h"
#include "support/ServiceProcess.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

namespace {
class PrivateBus {
public:
    PrivateBus() {
        m_daemon.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
        m_daemon.waitForReadyRead(10000);
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    }
    ~PrivateBus() { Stop(); }
    void Stop() {
        m_daemon.kill();
        m_daemon.waitForFinished(5000);
    }
    QString address() const { return m_address; }
    QProcessEnvironment Environment() const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", m_address);
        return environment;
    }

private:
    QProcess m_daemon;
    QString m_address;
};

class SessionEvents : public ::testing::Test {
protected:
    void SetUp() override {
        if (QStandardPaths::findExecutable("dbus-daemon").isEmpty()) {
            GTEST_SKIP() << "dbus-daemon is not installed";
        }
        ASSERT_FALSE(bus.address().isEmpty());
        logind.setProcessEnvironment(bus.Environment());
        logind.start(QString(ORVEL_BIN_DIR) + "/fake_logind", QStringList());
        ASSERT_TRUE(logind.waitForReadyRead(10000));
        folder.StorePlan("on-logon", 257);
        folder.StorePlan("on-logoff", 258);
        folder.StorePlan("on-lock", 259);
        folder.StorePlan("on-unlock", 260);
        service.process().setProcessEnvironment(bus.Environment());
        ASSERT_TRUE(service.Start());
        ASSERT_TRUE(service.WaitForLog("Watching logind for session events.", 10000));
    }
    void TearDown() override {
        logind.kill();
        logind.waitForFinished(5000);
    }
    void Send(const char* line) {
        logind.write(line);
        logind.write("\n");
        logind.waitForBytesWritten(10000);
    }

    PrivateBus bus;
    QProcess logind;
    ServiceFolder folder;
    AgentStandIn agent{folder.agentPort()};
    ServiceProcess service{folder};
};

struct EventCase {
    const char* command;
    const char* plan;
};

int Executes(const AgentStandIn& agent) {
    int executes = 0;
    for (const QString& line : agent.Received()) {
        executes += line.startsWith("600 ") ? 1 : 0;
    }
    return executes;
}

// Every 600 leaves through one worker in order, so when a plan's 600 has
// arrived, any 600 that an earlier event wrongly fired has arrived too.
TEST_F(SessionEvents, EachNotificationFiresOnlyItsPlans) {
    const EventCase cases[] = {
        {"new 7", "on-logon"}, {"lock 7", "on-lock"}, {"unlock 7", "on-unlock"}, {"remove 7", "on-logoff"}};
    int fired = 0;
    for (const EventCase& c : cases) {
        SCOPED_TRACE(c.command);
        Send(c.command);
        EXPECT_TRUE(agent.WaitFor(600, c.plan, 10000)) << agent.Received().join(", ").toStdString();
        ++fired;
        EXPECT_TRUE(service.WaitForLog(QString("Fire to the EventFire[%1] job success.").arg(c.plan), 10000));
        EXPECT_EQ(Executes(agent), fired);
    }
}

// The end of a system sleep has the service look at the wall clock at once;
// its start does nothing.
TEST_F(SessionEvents, AResumeIsNoticedAtOnce) {
    const QString resumed = "The system resumed from sleep; due start times are checked at once.";
    Send("sleep 1");
    Send("sleep 0");
    ASSERT_TRUE(service.WaitForLog(resumed, 10000));
    EXPECT_EQ(service.LogMessages().count(resumed), 1);
}

TEST_F(SessionEvents, ALostBusIsLoggedOnceAndTheServiceGoesOn) {
    bus.Stop();
    EXPECT_TRUE(service.WaitForLog(
        "Lost the system bus connection; the service goes on without session events.", 10000));
    EXPECT_EQ(service.process().state(), QProcess::Running);
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit());
    EXPECT_EQ(service.process().exitCode(), 0);
    EXPECT_EQ(service.LogMessages().count(
                  "Lost the system bus connection; the service goes on without session events."),
              1);
}
} // namespace
