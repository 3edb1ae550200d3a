// Hostile and broken input, from outside, on the real executable: plan
// commands that try to forge log lines or flood the log, stored rows and
// database files that cannot be used, and a crashed writer's hot journal.
#include "support/AgentStandIn.h"
#include "support/NotifySocket.h"
#include "support/PlanClient.h"
#include "support/ServiceProcess.h"
#include "support/TriggerBuilder.h"

#include "framework/CommandBuilder.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/FrameReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>
#include <memory>

namespace {
const QString kRule(106, '=');

// Daily plans "plan-<i>" at spread times of day; extra rows are raw SQL.
void StorePlans(const QString& path, int count, const QStringList& extra = {}) {
    {
        DatabaseFunctionOperation schema;
        QString error;
        ASSERT_TRUE(schema.OpenForWriting(path, error)) << error.toStdString();
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "plans");
        db.setDatabaseName(path);
        ASSERT_TRUE(db.open());
        QSqlQuery query(db);
        query.exec("BEGIN");
        for (int i = 0; i < count; ++i) {
            const int minuteOfDay = (i * 7919) % 1440;
            query.exec(
                QString("INSERT INTO triggers (plan_uuid, trigger_type, start_time) VALUES ('plan-%1', "
                        "2, '2026-01-01 %2:%3:00')")
                    .arg(i)
                    .arg(minuteOfDay / 60, 2, 10, QChar('0'))
                    .arg(minuteOfDay % 60, 2, 10, QChar('0')));
        }
        for (const QString& statement : extra) {
            EXPECT_TRUE(query.exec(statement)) << statement.toStdString();
        }
        query.exec("COMMIT");
        db.close();
    }
    QSqlDatabase::removeDatabase("plans");
}

int CountContaining(const QStringList& lines, const QString& part) {
    return static_cast<int>(
        std::count_if(lines.begin(), lines.end(), [&](const QString& line) { return line.contains(part); }));
}

QByteArray NewPlanFrame(const QString& planUuid, const QString& trace) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(200));
    command->setPlanUuid(planUuid);
    command->setTraceFlag(trace);
    RequestNewOperationData data;
    data.setTriggerAttribute(MakeAttribute({257}));
    CommandBuilder::DataToBytearray(&data, static_cast<RequestCommand*>(command.get())->getRfrnRequestData());
    return FrameReader::Frame(CommandBuilder::CommandToBytearray(command.get()));
}

class HostileInput : public ::testing::Test {
protected:
    void TearDown() override {
        if (service.process().state() == QProcess::Running) {
            service.Signal(SIGTERM);
            EXPECT_TRUE(service.WaitForExit(30000));
        }
    }
    bool StartAndWaitForTheCommandServer() {
        return service.Start() && service.WaitForLog("SchedulerService start success.", 60000) &&
               (port = service.WaitForCommandPort()) != 0;
    }
    int StartedFires() const { return CountContaining(service.LogMessages(), "] start success."); }

    ServiceFolder folder;
    ServiceProcess service{folder};
    quint16 port = 0;
};

// Every line of the log begins with the service's own time stamp, whatever
// the texts of the commands held; a flood of huge traces keeps the banner.
TEST_F(HostileInput, ClientTextsNeitherForgeLinesNorFloodTheLog) {
    ASSERT_TRUE(StartAndWaitForTheCommandServer());
    PlanClient client(port);
    const QString forged("\n2026-01-01 00:00:00.000 [1] ERROR forged line");
    client.SendRaw(NewPlanFrame("forged" + forged, "[200#1]" + forged));
    EXPECT_EQ(client.NextResult(10000), 0);
    client.SendRaw(NewPlanFrame(QString("carriage\r") + QChar(0x2028) + "return", QString("\r\x1b[2K")));
    EXPECT_EQ(client.NextResult(10000), 0);
    const QString hugeTrace(400000, 'x');
    for (int i = 0; i < 60; ++i) {
        client.SendRaw(NewPlanFrame(QString("huge-%1").arg(i), hugeTrace));
        ASSERT_EQ(client.NextResult(30000), 0) << "command " << i;
    }
    static const QRegularExpression stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )");
    const QStringList lines = service.LogLines();
    for (const QString& line : lines) {
        EXPECT_TRUE(stamp.match(line).hasMatch()) << line.left(200).toStdString();
    }
    EXPECT_EQ(service.LogMessages().mid(0, 1), QStringList{kRule});
    EXPECT_GE(CountContaining(lines, "[200#1]\\n2026-01-01 00:00:00.000 [1] ERROR forged line"), 2);
    for (const QString& line : lines) {
        EXPECT_LT(line.size(), 600) << line.left(200).toStdString();
    }
}

// One row that cannot become a trigger is skipped with one line; the other
// plans are scheduled and the command server serves.
TEST_F(HostileInput, OneBadRowAmongAThousandLosesOnlyItself) {
    StorePlans(folder.Path("data/alldb.db"), 1000,
               {"INSERT INTO triggers (plan_uuid) VALUES ('default-row')"});
    ASSERT_TRUE(StartAndWaitForTheCommandServer());
    EXPECT_EQ(StartedFires(), 1000);
    EXPECT_EQ(CountContaining(service.LogMessages(),
                              "Skipped the stored plan [default-row]: trigger type 0 has no fire"),
              1);
    PlanClient client(port);
    client.SendNewPlan("after-start", MakeAttribute({257}));
    EXPECT_EQ(client.NextResult(10000), 0);
}

// A row whose UUID would make every command about it too large for a frame
// is skipped; every other plan reaches the agent, and the link stays up.
TEST_F(HostileInput, AHugeUuidRowIsSkippedAndTheOthersAreReported) {
    AgentStandIn agent(folder.agentPort());
    StorePlans(folder.Path("data/alldb.db"), 20,
               {QString("INSERT INTO triggers (plan_uuid, trigger_type) VALUES ('%1', 2)")
                    .arg(QString(1024 * 1024, 'u'))});
    ASSERT_TRUE(StartAndWaitForTheCommandServer());
    EXPECT_EQ(CountContaining(service.LogMessages(), "the plan UUID is 1048576 bytes long, more than 255"),
              1);
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(agent.WaitFor(601, QString("plan-%1").arg(i), 20000)) << i;
    }
}

// A writer that died inside a transaction: the committed plans load.
TEST_F(HostileInput, TheCommittedPlansOfACrashedWriterLoad) {
    const QString original = folder.Path("writer.db");
    StorePlans(original, 200);
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "writer");
        db.setDatabaseName(original);
        ASSERT_TRUE(db.open());
        QSqlQuery query(db);
        ASSERT_TRUE(query.exec("PRAGMA cache_size = 2"));
        ASSERT_TRUE(query.exec("BEGIN"));
        ASSERT_TRUE(query.exec("DELETE FROM triggers"));
        ASSERT_TRUE(QFile::copy(original, folder.Path("data/alldb.db")));
        ASSERT_TRUE(QFile::copy(original + "-journal", folder.Path("data/alldb.db-journal")));
        query.exec("ROLLBACK");
        db.close();
    }
    QSqlDatabase::removeDatabase("writer");
    ASSERT_TRUE(StartAndWaitForTheCommandServer());
    EXPECT_EQ(StartedFires(), 200);
}

// A database the service cannot use: one error line with the file, the reason
// and the consequence, the same line as systemd's status, no readiness, and
// the service idles on.
TEST_F(HostileInput, AnUnusableDatabaseIsReportedToTheLogAndToSystemd) {
    QDir().mkpath(folder.Path("data/alldb.db"));
    NotifySocket notify(folder.Path("notify"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("NOTIFY_SOCKET", folder.Path("notify"));
    service.process().setProcessEnvironment(environment);
    ASSERT_TRUE(service.Start());
    const QString reason =
        "data/alldb.db: it is not a regular file; the service runs without plans and accepts no commands.";
    ASSERT_TRUE(notify.WaitForContaining(reason));
    const QStringList lines = service.LogLines();
    EXPECT_EQ(CountContaining(lines, "] ERROR Cannot load the plans database "), 1);
    EXPECT_EQ(CountContaining(lines, reason), 1);
    EXPECT_TRUE(service.WaitForLog("Failed to initialize the SchedulerDataStoreManager.", 10000));
    EXPECT_FALSE(notify.received().contains("READY=1"));
    EXPECT_EQ(service.process().state(), QProcess::Running);
}

// Definitions that could never be scheduled are answered 1 by the running
// service.
TEST_F(HostileInput, ImpossibleDefinitionsAreAnsweredWithFailure) {
    ASSERT_TRUE(StartAndWaitForTheCommandServer());
    PlanClient client(port);
    const TriggerDefinition impossible[] = {
        {1, "2026-02-30 25:61:00"}, {4, "", "", 0, 0, "", "", "99"}, {3, "", "", 0, 0, "8"}, {9}};
    for (const TriggerDefinition& definition : impossible) {
        client.SendNewPlan("impossible", MakeAttribute(definition));
        EXPECT_EQ(client.NextResult(10000), 1);
    }
    EXPECT_EQ(CountContaining(service.LogMessages(), "The plan[impossible] command[200#"), 4);
    client.SendNewPlan("long-over", MakeAttribute({1, "2020-01-01 00:00:00"}));
    EXPECT_EQ(client.NextResult(10000), 0);
}
} // namespace
