// orvelctl status over a run state file, with and without a service.
#include "support/ClockShift.h"
#include "support/ToolRun.h"

#include "store/RunStateStore.h"
#include "tools/RelativeTime.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
struct SpanRow {
    qint64 msecs;
    const char* left;
    const char* ago;
};

TEST(RelativeTime, ReadsAsPeopleSayIt) {
    constexpr qint64 s = 1000;
    const SpanRow rows[] = {
        {0, "0 s left", "0 s ago"},
        {59 * s, "59 s left", "59 s ago"},
        {60 * s, "1min left", "1min ago"},
        {(4 * 3600 + 12 * 60 + 30) * s, "4h 12min left", "4h 12min ago"},
        {3 * 3600 * s, "3h left", "3h ago"},
        {(86400 + 3 * 3600 + 5) * s, "1 day 3h left", "1 day 3h ago"},
        {(86400 + 600) * s, "1 day left", "1 day ago"},
        {(2 * 86400 + 23 * 3600) * s, "2 days left", "2 days ago"},
        {-5 * 60 * s, "5min late", "in 5min"},
    };
    for (const SpanRow& row : rows) {
        SCOPED_TRACE(row.msecs);
        EXPECT_EQ(RelativeTime::Left(row.msecs), row.left);
        EXPECT_EQ(RelativeTime::Ago(row.msecs), row.ago);
    }
}

class Status : public ::testing::Test {
protected:
    void SetUp() override {
        ClockShift clock(QDateTime::fromMSecsSinceEpoch(At("2026-03-10 12:48:00")));
        RunStateStore store;
        ASSERT_TRUE(store.Open(Path(), [](const QString&) { return true; }));
        store.RecordSchedule("nightly", 2, "2026-03-11 02:00:00", 0);
        store.RecordRun("nightly", 2, "2026-03-10 02:00:00", At("2026-03-08 02:00:00"));
        store.RecordResult("nightly", 0, At("2026-03-08 02:10:00"));
        store.RecordSchedule("hourly", 2, "2026-03-10 13:00:00", 0);
        store.RecordRun("hourly", 2, "2026-03-10 12:00:00", At("2026-03-10 12:00:00"));
        store.RecordResult("hourly", 1, At("2026-03-10 12:00:01"));
        store.RecordSchedule("logon", 257, QString(), 0);
        store.RecordSchedule("once", 1, QString(), 1);
        store.RecordRun("once", 1, "2026-03-09 08:00:00", At("2026-03-09 08:00:00"));
        store.RecordSchedule("new", 3, "2026-03-12 16:30:00", 0);
        store.RecordRun("new", 3, "2026-03-10 08:45:00", At("2026-03-10 08:45:00"));
        store.RecordResult("new", 0, At("2026-03-10 08:44:00"));
        store.RecordOccurrence("hourly", {At("2026-03-10 12:00:00"), At("2026-03-10 12:00:00") + 120,
                                          RunHistory::Outcome::OnTime, RunHistory::Reason::None, 0, 0});
        store.RecordOccurrence("nightly",
                               {At("2026-03-09 02:00:00"), At("2026-03-10 04:00:00"),
                                RunHistory::Outcome::CaughtUp, RunHistory::Reason::ServiceDown, 0, 0});
        store.RecordOccurrence("once", {At("2026-03-09 08:00:00"), -1, RunHistory::Outcome::Missed,
                                        RunHistory::Reason::ClockStepped, 0, 0});
    }

    static qint64 At(const char* text) {
        return QDateTime::fromString(text, "yyyy-MM-dd hh:mm:ss").toMSecsSinceEpoch();
    }

    QString Path() const { return dir.filePath("state.db"); }

    ToolRun Orvelctl(const QStringList& extra, quint16 port) const {
        return Run(QStringList{"status", "--state", Path(), "--server", "127.0.0.1", "--port",
                               QString::number(port), "--now", "2026-03-10 12:48:00"} +
                   extra);
    }

    static ToolRun Run(const QStringList& arguments) {
        return ToolRun::Of(QString(ORVEL_BIN_DIR) + "/orvelctl", arguments);
    }

    QTemporaryDir dir;
};

TEST_F(Status, ListsPlansByNextStartInAlignedColumns) {
    QTcpServer service;
    ASSERT_TRUE(service.listen(QHostAddress::LocalHost, 0));
    const ToolRun run = Orvelctl({}, service.serverPort());
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 7) << run.out.toStdString();
    EXPECT_TRUE(
        lines[0].startsWith(QString("The scheduler service is running (127.0.0.1:%1 answers); its run "
                                    "state was last written ")
                                .arg(service.serverPort())))
        << lines[0].toStdString();
    const QStringList expected = {
        "NEXT                 LEFT            LAST                 PASSED        RESULT   OCCURRE"
        "NCE                 TYPE    PLAN",
        "2026-03-10 13:00:00  12min left      2026-03-10 12:00:00  48min ago     failed   on time"
        "                    daily   hourly",
        "2026-03-11 02:00:00  13h 12min left  2026-03-10 02:00:00  2 days ago    ok       caught "
        "up (down 1 day 2h)  daily   nightly",
        "2026-03-12 16:30:00  2 days left     2026-03-10 08:45:00  4h 3min ago   waiting  -      "
        "                    weekly  new",
        "-                    -               never                -             -        -      "
        "                    logon   logon",
        "ended                -               2026-03-09 08:00:00  1 day 4h ago  waiting  missed "
        "(clock stepped)     once    once",
    };
    EXPECT_EQ(lines.mid(1), expected) << run.out.toStdString();
}

TEST_F(Status, WorksWhileTheServiceIsDownAndForOnePlan) {
    const quint16 closed = [] {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        return probe.serverPort();
    }();
    const ToolRun run = Orvelctl({"--plan", "nightly"}, closed);
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].startsWith("The scheduler service is not running (nothing answers on 127.0.0.1:"));
    EXPECT_TRUE(lines[2].endsWith("nightly"));

    const ToolRun unknown = Orvelctl({"--plan", "nosuch"}, closed);
    EXPECT_EQ(unknown.code, 1);
    EXPECT_EQ(unknown.err, "orvelctl status: the run state knows no plan 'nosuch'\n");
}

// The metrics of the same file: the unanswered runs of "once" (ended) and
// "new" are overdue, the refusal of "hourly" is named.
TEST_F(Status, MetricsReadTheSameRunState) {
    const ToolRun run = Run({"metrics", "--state", Path(), "--now", "2026-03-10 12:48:00"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    const auto seconds = [](const char* moment) { return QString::number(At(moment) / 1000) + ".000"; };
    for (const QString& line : {
             QString("orvel_scheduler_plans{type=\"daily\",state=\"scheduled\"} 2"),
             QString("orvel_scheduler_plans{type=\"once\",state=\"ended\"} 1"),
             QString("orvel_scheduler_next_start_timestamp_seconds ") + seconds("2026-03-10 13:00:00"),
             QString("orvel_scheduler_overdue_plans 2"),
             QString("orvel_scheduler_refused_plans 1"),
             QString("orvel_scheduler_plan_overdue_since_timestamp_seconds{plan=\"once\"} ") +
                 seconds("2026-03-09 08:00:00"),
             QString("orvel_scheduler_plan_refused_timestamp_seconds{plan=\"hourly\"} ") +
                 seconds("2026-03-10 12:00:01"),
             QString("orvel_scheduler_plan_series_left_out 0"),
         }) {
        EXPECT_TRUE(lines.contains(line)) << line.toStdString() << "\n" << run.out.toStdString();
    }
    EXPECT_TRUE(lines.filter("orvel_scheduler_up").isEmpty()) << "only the service knows whether it runs";

    EXPECT_EQ(Run({"metrics", "--now", "tomorrow"}).code, 2);
    EXPECT_EQ(Run({"metrics", "--state", dir.filePath("missing.db")}).code, 1);
}

TEST_F(Status, GivesOneJsonDocument) {
    const ToolRun run = Orvelctl({"--json"}, 1);
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject root = QJsonDocument::fromJson(run.out.toUtf8()).object();
    EXPECT_FALSE(root.value("running").toBool());
    const QJsonArray plans = root.value("plans").toArray();
    ASSERT_EQ(plans.size(), 5);
    const QJsonObject first = plans.at(0).toObject();
    EXPECT_EQ(first.value("plan").toString(), "hourly");
    EXPECT_EQ(first.value("nextStart").toString(), "2026-03-10 13:00:00");
    EXPECT_EQ(first.value("result").toInt(), 1);
    EXPECT_EQ(first.value("outcome").toString(), "on-time");
    EXPECT_EQ(plans.at(1).toObject().value("reason").toString(), "down 1 day 2h");
    EXPECT_TRUE(plans.at(2).toObject().value("outcome").isNull());
    EXPECT_TRUE(plans.at(3).toObject().value("lastDue").isNull());
    EXPECT_TRUE(plans.at(4).toObject().value("ended").toBool());
}

TEST_F(Status, AMissingOrForeignFileIsOneClearError) {
    const QString missing = dir.filePath("nothing.db");
    QProcess process;
    process.start(QString(ORVEL_BIN_DIR) + "/orvelctl", {"status", "--state", missing, "--port", "1"});
    process.waitForFinished(20000);
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_EQ(QString::fromUtf8(process.readAllStandardError()),
              QString("orvelctl status: cannot read the run state %1: no such file\n").arg(missing));
    EXPECT_FALSE(QFile::exists(missing));
}
} // namespace
