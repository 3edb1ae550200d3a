// The schedule health from outside: the real service writes its metrics file
// into the folder of a real node exporter, and the test reads what a
// Prometheus server would scrape.
#include "support/AgentStandIn.h"
#include "support/ReservedPort.h"
#include "support/ServiceProcess.h"

#include "framework/Clock.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace {
constexpr int kIntervalSecs = 5;
// A change must show within two intervals, and no wait is shorter than 10 s.
constexpr int kTwoIntervalsMSecs = 2 * kIntervalSecs * 1000;
const QString kPlan = "nightly";

// The node exporter with only its textfile collector, on a port this test
// holds: it gets the listening socket as systemd would hand it over, so no
// other process can take the port between choosing and listening.
class NodeExporter {
public:
    explicit NodeExporter(const QString& textfiles) {
        const int listening = static_cast<int>(m_port.Listen());
        ::fcntl(listening, F_SETFD, 0);
        m_process.setProcessChannelMode(QProcess::ForwardedChannels);
        m_process.start("/bin/sh",
                        {"-c", QString("export LISTEN_PID=$$ LISTEN_FDS=1; exec %1 "
                                       "--log.level=error --collector.disable-defaults --collector.textfile "
                                       "--collector.textfile.directory=%2 --web.systemd-socket "
                                       "3<&%3 %3<&-")
                                   .arg(ORVEL_NODE_EXPORTER, textfiles)
                                   .arg(listening)});
        m_process.waitForStarted(10000);
        ::close(listening);
    }
    ~NodeExporter() {
        m_process.terminate();
        m_process.waitForFinished(10000);
    }

    QByteArray Scrape() const {
        QTcpSocket socket;
        socket.connectToHost("127.0.0.1", m_port.port());
        if (!socket.waitForConnected(10000)) {
            return QByteArray();
        }
        socket.write("GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n");
        while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(10000)) {
        }
        return socket.readAll();
    }

    // Whether a scrape shows the line within the time.
    bool WaitForLine(const QByteArray& line, int timeoutMSecs) const {
        return QTest::qWaitFor([&] { return Scrape().contains("\n" + line + "\n"); }, timeoutMSecs);
    }

private:
    ReservedPort m_port;
    QProcess m_process;
};

void WriteMetricsConfig(ServiceFolder& folder, const QString& textfile) {
    QFile file(folder.Path("cfg/config.ini"));
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write(QString("[Metrics]\nTextfilePath=%1\nIntervalSecs=%2\nOverdueAfterSecs=1\n")
                   .arg(textfile)
                   .arg(kIntervalSecs)
                   .toUtf8());
}

// A once plan comes due while the agent is away: the overdue count and the
// agent link show it within two intervals, and return once the agent is back
// and has had the run.
TEST(MetricsProcess, TheNodeExporterSeesAnAgentOutageOverADueStart) {
    QTemporaryDir textfiles;
    ServiceFolder folder(1);
    WriteMetricsConfig(folder, textfiles.filePath("orvel_scheduler.prom"));
    const QDateTime due = Clock::now().addSecs(25);
    folder.StorePlan(kPlan, 1, due.toString("yyyy-MM-dd hh:mm:ss"));
    const quint16 agentPort = folder.agentPort().port();
    std::optional<AgentStandIn> agent(std::in_place, folder.agentPort());
    ServiceProcess service(folder);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 20000));
    NodeExporter exporter(textfiles.path());

    ASSERT_TRUE(exporter.WaitForLine("orvel_scheduler_agent_connected 1", 20000));
    // The link can be up before the run state's writer has taken the plan's
    // schedule, which a loaded machine delays by more than one interval.
    ASSERT_TRUE(exporter.WaitForLine("orvel_scheduler_plans{state=\"scheduled\",type=\"once\"} 1", 20000));
    const QByteArray first = exporter.Scrape();
    for (const char* family :
         {"up", "build_info", "start_time_seconds", "plans", "next_start_timestamp_seconds", "overdue_plans",
          "agent_frames_waiting", "run_answers_total", "fire_lateness_seconds"}) {
        EXPECT_TRUE(first.contains(QByteArray("# TYPE orvel_scheduler_") + family + ' ')) << family;
    }
    EXPECT_TRUE(first.contains("\norvel_scheduler_up 1\n"));
    EXPECT_TRUE(first.contains("\norvel_scheduler_overdue_plans 0\n"));
    EXPECT_TRUE(first.contains("\norvel_scheduler_plans{state=\"scheduled\",type=\"once\"} 1\n"))
        << first.toStdString();

    agent.reset();
    EXPECT_TRUE(exporter.WaitForLine("orvel_scheduler_agent_connected 0", kTwoIntervalsMSecs));
    ASSERT_LT(Clock::now(), due) << "the machine was too slow to stop the agent before the due start";
    ASSERT_TRUE(QTest::qWaitFor([&] { return Clock::now() >= due; }, 60000));
    EXPECT_TRUE(exporter.WaitForLine("orvel_scheduler_overdue_plans 1", kTwoIntervalsMSecs));
    EXPECT_TRUE(
        exporter.Scrape().contains("orvel_scheduler_plan_overdue_since_timestamp_seconds{plan=\"nightly\"}"));

    agent.emplace(agentPort);
    ASSERT_TRUE(agent->WaitFor(600, kPlan, 20000));
    EXPECT_TRUE(exporter.WaitForLine("orvel_scheduler_agent_connected 1", 20000));
    EXPECT_TRUE(exporter.WaitForLine("orvel_scheduler_overdue_plans 0", 20000));
    const QByteArray after = exporter.Scrape();
    EXPECT_TRUE(after.contains("\norvel_scheduler_runs_total{outcome=\"on_time\"} 1\n"))
        << after.toStdString();
    EXPECT_TRUE(after.contains("\norvel_scheduler_run_answers_total{result=\"ok\"} 1\n"))
        << after.toStdString();
    EXPECT_TRUE(after.contains("\norvel_scheduler_fire_lateness_seconds_count 1\n"));

    // The last write at stop says that the service no longer runs.
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit(20000));
    EXPECT_TRUE(exporter.WaitForLine("orvel_scheduler_up 0", 10000));
    EXPECT_EQ(QFile(textfiles.filePath("orvel_scheduler.prom")).permissions() & 0x0777, 0x0644);
    EXPECT_EQ(QDir(textfiles.path()).entryList(QDir::Files | QDir::Hidden).size(), 1) << "no temporary left";
}

// A metrics folder that is not there is named once; the service runs on.
TEST(MetricsProcess, AMissingFolderIsLoggedOnce) {
    ServiceFolder folder;
    WriteMetricsConfig(folder, folder.Path("no-such-folder/orvel_scheduler.prom"));
    ServiceProcess service(folder);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 20000));
    const auto logged = [&service](const QString& part) { return service.LogMessages().filter(part).size(); };
    const QString missing = "The metrics folder " + folder.Path("no-such-folder") + " does not exist";
    ASSERT_TRUE(QTest::qWaitFor([&] { return logged(missing) == 1; }, 10000));
    QDir().mkpath(folder.Path("no-such-folder"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return logged("is written again") == 1; }, kTwoIntervalsMSecs));
    EXPECT_EQ(logged(missing), 1);
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit(20000));
}
} // namespace
