// The task scheduler's fixed sequences over the real managers, made to fail
// one at a time.
#include "support/LogCapture.h"
#include "support/ServiceFolder.h"

#include "framework/CommandBuilder.h"
#include "framework/ConfigReader.h"
#include "framework/ResultCommand.h"
#include "scheduler/TaskScheduler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTcpServer>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

namespace {
class Sequences : public ::testing::Test {
protected:
    void TearDown() override {
        ConfigReader::ResetToDefaults();
        QCoreApplication::sendPostedEvents();
    }

    std::vector<LogCapture::Line> Errors() const {
        std::vector<LogCapture::Line> errors;
        for (const auto& line : log.Lines()) {
            if (line.priority <= log4cpp::Priority::ERROR) {
                errors.push_back(line);
            }
        }
        return errors;
    }

    // Stop and UnInit, twice, after whatever happened.
    static void TearDownTwice(TaskScheduler& scheduler) {
        for (int i = 0; i < 2; ++i) {
            scheduler.Stop();
            scheduler.UnInit();
        }
    }

    ServiceFolder folder;
    LogCapture log;
};

TEST_F(Sequences, EmptyApplicationDirectoryFailsSilently) {
    TaskScheduler scheduler(nullptr);
    EXPECT_FALSE(scheduler.Init(""));
    EXPECT_TRUE(log.Lines().empty());
    TearDownTwice(scheduler);
}

struct InitFailure {
    const char* name;
    std::function<void(ServiceFolder&)> arrange;
    const char* line;
    // What systemd is told.
    const char* status;
};

TEST_F(Sequences, EachInitFailureWritesItsOneLine) {
    const InitFailure cases[] = {
        {"no_configuration", [](ServiceFolder& f) { f.RemoveConfig(); },
         "Failed to initialize the ConfigReader.", "Failed to initialize the ConfigReader."},
        {"database_not_a_database",
         [](ServiceFolder& f) {
             QFile file(f.Path("data/alldb.db"));
             file.open(QIODevice::WriteOnly);
             file.write("not sqlite at all");
         },
         "Failed to initialize the SchedulerDataStoreManager.",
         "data/alldb.db: it is not an SQLite database; the service runs without plans and accepts no "
         "commands."},
        {"database_is_a_directory", [](ServiceFolder& f) { QDir().mkpath(f.Path("data/alldb.db")); },
         "Failed to initialize the SchedulerDataStoreManager.",
         "data/alldb.db: it is not a regular file; the service runs without plans and accepts no commands."},
    };
    for (const InitFailure& c : cases) {
        SCOPED_TRACE(c.name);
        ServiceFolder own;
        c.arrange(own);
        log.Clear();
        TaskScheduler scheduler(nullptr);
        EXPECT_FALSE(scheduler.Init(own.Dir()));
        const auto errors = Errors();
        ASSERT_FALSE(errors.empty());
        EXPECT_EQ(errors.back().message, c.line);
        EXPECT_EQ(log.Count(c.line), 1);
        EXPECT_TRUE(scheduler.getFailure().endsWith(c.status)) << scheduler.getFailure().toStdString();
        TearDownTwice(scheduler);
    }
}

TEST_F(Sequences, ABusyCommandPortFailsTheStart) {
    QTcpServer squatter;
    ASSERT_TRUE(squatter.listen(QHostAddress::LocalHost, 0));
    folder.WriteConfig(squatter.serverPort());
    TaskScheduler scheduler(nullptr);
    ASSERT_TRUE(scheduler.Init(folder.Dir()));
    EXPECT_FALSE(scheduler.Start());
    EXPECT_EQ(Errors().back().message, "Failed to start the SchedulerServerManager.");
    EXPECT_EQ(log.Count("Failed to start the TriggerFireManager."), 0);
    TearDownTwice(scheduler);
}

TEST_F(Sequences, StartsAndStopsCleanlyAndRepeatedly) {
    TaskScheduler scheduler(nullptr);
    ASSERT_TRUE(scheduler.Init(folder.Dir()));
    ASSERT_TRUE(scheduler.Start());
    EXPECT_NE(scheduler.commandServerPort(), 0);
    EXPECT_EQ(
        log.Count(QString("The command server listens on 127.0.0.1:%1.").arg(scheduler.commandServerPort())),
        1);
    EXPECT_FALSE(scheduler.TriggerEvent(255));
    EXPECT_TRUE(scheduler.TriggerEvent(256));
    TearDownTwice(scheduler);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(Sequences, EventsBeforeInitReachNoTable) {
    TaskScheduler scheduler(nullptr);
    EXPECT_FALSE(scheduler.TriggerEvent(257));
}

struct ResultCase {
    const char* name;
    std::function<QByteArray(QString&)> bytes;
    int priority;
    const char* line;
};

TEST_F(Sequences, AgentResultsAreLogged) {
    auto result = [](quint64 code, const char* traceText = "[600#9]") {
        return [code, traceText](QString& trace) {
            ResultCommand command;
            command.setTraceFlag(traceText);
            command.setUintResult(code);
            trace = command.getTraceFlag();
            return CommandBuilder::CommandToBytearray(&command);
        };
    };
    const ResultCase cases[] = {
        {"empty", [](QString&) { return QByteArray(); }, log4cpp::Priority::WARN,
         "Client request failed : return data is empty."},
        {"garbage", [](QString&) { return QByteArray("garbage"); }, log4cpp::Priority::WARN,
         "Client read result command unsuccessfully."},
        {"failure", result(1), log4cpp::Priority::ERROR, "Client requested command[600#9] unsuccessfully."},
        {"success", result(0), log4cpp::Priority::INFO, "Client request command[600#9] was successful."},
        {"forged_line", result(1, "[600#9]\n2026-01-01 00:00:00.000 [1] ERROR forged"),
         log4cpp::Priority::ERROR,
         "Client requested command[600#9]\\n2026-01-01 00:00:00.000 [1] ERROR forged unsuccessfully."},
    };
    TaskScheduler scheduler(nullptr);
    for (const ResultCase& c : cases) {
        SCOPED_TRACE(c.name);
        log.Clear();
        QString trace;
        const QByteArray bytes = c.bytes(trace);
        QMetaObject::invokeMethod(&scheduler, "onClientRequestCommandResult", Qt::DirectConnection,
                                  Q_ARG(QByteArray, bytes));
        EXPECT_TRUE(log.Has(c.priority, c.line));
        EXPECT_EQ(log.Lines().size(), 1u);
    }
}
} // namespace
