// The run history in the state file: what each occurrence records, the agent's
// answers, retention by count and by age, and the size of a row.
#include "support/ClockShift.h"
#include "support/LogCapture.h"

#include "framework/ConfigReader.h"
#include "store/RunHistoryReader.h"
#include "store/RunStateStore.h"
#include "triggers/LocalTime.h"

#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

namespace {
using Outcome = RunHistory::Outcome;
using Reason = RunHistory::Reason;

qint64 At(const char* text) {
    return LocalTime::Parse(text).toMSecsSinceEpoch();
}

RunHistory::Occurrence Ran(qint64 dueMSecs, qint64 lateMSecs, Outcome outcome = Outcome::OnTime,
                           Reason reason = Reason::None) {
    return RunHistory::Occurrence{dueMSecs, dueMSecs + lateMSecs, outcome, reason, 0, 0};
}

RunHistory::Occurrence NotRun(qint64 dueMSecs, Outcome outcome, Reason reason) {
    return RunHistory::Occurrence{dueMSecs, -1, outcome, reason, 0, 0};
}

// A store with the given limits, and a reader over what it wrote.
class History : public ::testing::Test {
protected:
    void Open(int keepPerPlan = 50, int keepDays = 90) {
        ConfigReader::setHistoryLimits(keepPerPlan, keepDays);
        ASSERT_TRUE(m_store.Open(m_dir.filePath("state.db"), {}));
    }
    void TearDown() override {
        m_store.Close();
        ConfigReader::ResetToDefaults();
    }
    QVector<RunHistoryReader::Row> Read(const RunHistoryReader::Filter& filter = {}) {
        EXPECT_TRUE(m_store.Flush());
        RunHistoryReader reader;
        QString error;
        QVector<RunHistoryReader::Row> rows;
        EXPECT_TRUE(reader.Open(m_dir.filePath("state.db"), error)) << error.toStdString();
        EXPECT_TRUE(reader.Read(filter, rows, error)) << error.toStdString();
        return rows;
    }

    ClockShift m_clock{LocalTime::Parse("2026-03-10 12:00:00")};
    QTemporaryDir m_dir;
    RunStateStore m_store;
};

// Each kind of occurrence reads back as it was recorded, and each outcome
// name of --outcome finds exactly its rows.
TEST_F(History, EveryOccurrenceReadsBackAsRecorded) {
    Open();
    const qint64 base = At("2026-03-10 08:00:00");
    const QVector<RunHistory::Occurrence> recorded = {
        Ran(base, 120),
        Ran(base + 60000, 93600000, Outcome::Late, Reason::ServiceDown),
        RunHistory::Occurrence{base + 120000, base + 400000, Outcome::CaughtUp, Reason::MachineSlept, 17000,
                               0},
        NotRun(base + 180000, Outcome::Missed, Reason::ClockStepped),
        NotRun(base + 240000, Outcome::Merged, Reason::AgentUnreachable),
        RunHistory::Occurrence{base + 300000, base + 300500, Outcome::OnTime, Reason::None, 0, 4},
        Ran(base + 360000, 10, Outcome::Moved, Reason::DaylightGap),
        Ran(base + 420000, 10, Outcome::OnTime, Reason::RepeatedHour),
        NotRun(base + 480000, Outcome::Ended, Reason::None),
        NotRun(base + 540000, Outcome::Deleted, Reason::None),
    };
    for (int i = 0; i < recorded.size(); ++i) {
        m_store.RecordOccurrence(QString("plan-%1").arg(i), recorded.at(i));
    }
    const QVector<RunHistoryReader::Row> rows = Read();
    ASSERT_EQ(rows.size(), recorded.size());
    for (int i = 0; i < recorded.size(); ++i) {
        const RunHistory::Occurrence& want = recorded.at(recorded.size() - 1 - i);
        const RunHistoryReader::Row& row = rows.at(i);
        SCOPED_TRACE(row.planUuid.toStdString());
        EXPECT_EQ(row.dueMSecs, want.dueMSecs);
        EXPECT_EQ(row.handedMSecs, want.handedMSecs);
        EXPECT_EQ(row.outcome, want.outcome);
        EXPECT_EQ(row.reason, want.reason);
        EXPECT_EQ(row.detail, want.detail);
        EXPECT_EQ(row.merged, want.merged);
        EXPECT_FALSE(row.hasResult);
    }
    const QStringList names = RunHistoryReader::OutcomeNames();
    const QVector<int> perName = {3, 1, 1, 1, 1, 1, 1, 1, 0, 0};
    for (int i = 0; i < names.size(); ++i) {
        EXPECT_EQ(Read({QString(), 0, names.at(i), -1}).size(), perName.at(i)) << names.at(i).toStdString();
    }
    EXPECT_EQ(Read({"plan-3", 0, QString(), -1}).size(), 1);
    EXPECT_EQ(Read({QString(), base + 300000, QString(), -1}).size(), 5);
}

TEST_F(History, AMissedOrMergedStartIsOneWarnLineAndAnOnTimeRunNone) {
    Open();
    LogCapture log;
    const qint64 due = At("2026-03-10 08:00:00");
    m_store.RecordOccurrence("quiet", Ran(due, 5));
    m_store.RecordOccurrence("skipped", NotRun(due, Outcome::Missed, Reason::ServiceDown));
    m_store.RecordOccurrence("folded", NotRun(due, Outcome::Merged, Reason::AgentUnreachable));
    EXPECT_EQ(log.Lines().size(), 2u);
    EXPECT_TRUE(log.Has(log4cpp::Priority::WARN,
                        "Plan[skipped] start [2026-03-10 08:00:00] was missed: service down."));
    EXPECT_TRUE(
        log.Has(log4cpp::Priority::WARN,
                "Plan[folded] start [2026-03-10 08:00:00] was merged into a later run: agent unreachable."));
}

// An answer lands on the run it answers, also after a restart; a run that the
// next start overtakes without an answer says so.
TEST_F(History, AnswersRefusalsAndRunsNeverAnswered) {
    LogCapture log;
    Open();
    const qint64 due = At("2026-03-10 08:00:00");
    m_store.RecordOccurrence("answered", Ran(due, 0));
    m_store.RecordResult("answered", 0, due + 2500);
    m_store.RecordOccurrence("refused", Ran(due, 0));
    m_store.RecordResult("refused", 1, due + 100);
    m_store.RecordOccurrence("silent", Ran(due, 0));
    ASSERT_TRUE(m_store.Flush());
    m_store.RecordOccurrence("silent", Ran(due + 60000, 0));
    m_store.RecordOccurrence("restarted", Ran(due, 0));
    m_store.Close();
    Open();
    m_store.RecordResult("restarted", 0, due + 9000);

    QHash<QString, RunHistoryReader::Row> byPlan;
    for (const RunHistoryReader::Row& row : Read()) {
        byPlan.insert(row.planUuid + (row.dueMSecs == due ? "" : "-next"), row);
    }
    EXPECT_EQ(byPlan.value("answered").result, 0);
    EXPECT_EQ(byPlan.value("answered").resultMSecs, due + 2500);
    EXPECT_EQ(byPlan.value("refused").result, 1);
    EXPECT_EQ(byPlan.value("silent").result, RunHistory::kNoAnswer);
    EXPECT_FALSE(byPlan.value("silent-next").hasResult);
    EXPECT_EQ(byPlan.value("restarted").resultMSecs, due + 9000);
    EXPECT_TRUE(log.Has(log4cpp::Priority::WARN,
                        "Plan[refused] run for [2026-03-10 08:00:00] was refused by the agent."));
    EXPECT_TRUE(log.Has(log4cpp::Priority::WARN,
                        "Plan[silent] run for [2026-03-10 08:00:00] got no answer from "
                        "the agent before its next start."));
    EXPECT_EQ(Read({QString(), 0, "refused", -1}).size(), 1);
    EXPECT_EQ(Read({QString(), 0, "no-answer", -1}).size(), 1);
}

// A later word on a start (the missed start that is caught up) replaces the
// earlier one instead of adding a row.
TEST_F(History, ACaughtUpStartReplacesItsMissedRow) {
    Open();
    const qint64 due = At("2026-03-10 08:00:00");
    m_store.RecordOccurrence("plan", NotRun(due, Outcome::Missed, Reason::MachineSlept));
    ASSERT_TRUE(m_store.Flush());
    m_store.RecordOccurrence("plan", Ran(due, 3600000, Outcome::CaughtUp, Reason::MachineSlept));
    const QVector<RunHistoryReader::Row> rows = Read();
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows.front().outcome, Outcome::CaughtUp);
}

// Runs handed while the agent is away replace each other in the link: the
// replaced starts become merged, not unanswered, and the run that finally goes
// out counts them.
TEST_F(History, RunsMergedWhileTheAgentIsAwayAreNotCalledUnanswered) {
    Open();
    LogCapture log;
    const qint64 base = At("2026-03-10 08:00:00");
    m_store.RecordOccurrence("plan", Ran(base, 0));
    for (int i = 1; i < 5; ++i) {
        const qint64 due = base + i * 60000;
        m_store.RecordOccurrence("plan", Ran(due, 0));
        m_store.RecordOccurrence("plan", NotRun(due - 60000, Outcome::Merged, Reason::AgentUnreachable));
        m_store.RecordOccurrence("plan", RunHistory::Occurrence{due, -1, Outcome(0), Reason::None, 0, i});
    }
    const QVector<RunHistoryReader::Row> rows = Read();
    ASSERT_EQ(rows.size(), 5);
    EXPECT_EQ(rows.front().outcome, Outcome::OnTime);
    EXPECT_EQ(rows.front().merged, 4);
    for (int i = 1; i < 5; ++i) {
        EXPECT_EQ(rows.at(i).outcome, Outcome::Merged);
        EXPECT_EQ(rows.at(i).handedMSecs, -1);
        EXPECT_FALSE(rows.at(i).hasResult);
    }
    EXPECT_EQ(log.CountContaining("no answer"), 0);
    EXPECT_EQ(log.CountContaining("was merged into a later run"), 4);
}

TEST_F(History, KeepsTheNewestRowsPerPlan) {
    Open(3);
    const qint64 base = At("2026-03-10 08:00:00");
    for (int i = 0; i < 7; ++i) {
        m_store.RecordOccurrence("busy", Ran(base + i * 60000, 0));
        ASSERT_TRUE(m_store.Flush());
    }
    m_store.RecordOccurrence("other", Ran(base, 0));
    const QVector<RunHistoryReader::Row> busy = Read({"busy", 0, QString(), -1});
    ASSERT_EQ(busy.size(), 3);
    EXPECT_EQ(busy.front().dueMSecs, base + 6 * 60000);
    EXPECT_EQ(busy.back().dueMSecs, base + 4 * 60000);
    EXPECT_EQ(Read({"other", 0, QString(), -1}).size(), 1);
}

TEST_F(History, ForgetsRowsOlderThanItsDaysAsTheClockMovesOn) {
    Open(50, 2);
    m_store.RecordOccurrence("plan", Ran(At("2026-03-07 12:00:00"), 0));
    m_store.RecordOccurrence("plan", Ran(At("2026-03-09 13:00:00"), 0));
    m_store.RecordOccurrence("plan", Ran(At("2026-03-10 12:00:00"), 0));
    EXPECT_EQ(Read().size(), 2);
    m_clock.To(LocalTime::Parse("2026-03-11 14:00:00"));
    m_store.RecordOccurrence("plan", Ran(At("2026-03-11 14:00:00"), 0));
    const QVector<RunHistoryReader::Row> rows = Read();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows.back().dueMSecs, At("2026-03-10 12:00:00"));
}

// A history table of another shape turns the history off; the run state is
// still written.
TEST_F(History, AForeignHistoryTableLeavesTheRunStateAlone) {
    {
        RunStateStore store;
        ASSERT_TRUE(store.Open(m_dir.filePath("state.db"), {}));
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "foreign");
        db.setDatabaseName(m_dir.filePath("state.db"));
        ASSERT_TRUE(db.open());
        QSqlQuery query(db);
        ASSERT_TRUE(query.exec("DROP TABLE history"));
        ASSERT_TRUE(query.exec("CREATE TABLE history (something TEXT)"));
    }
    QSqlDatabase::removeDatabase("foreign");
    Open();
    m_store.RecordOccurrence("plan", Ran(At("2026-03-10 08:00:00"), 0));
    m_store.RecordSchedule("plan", 2, "2026-03-11 08:00:00", 0);
    EXPECT_TRUE(m_store.Flush());
}

// Hourly plans with runs a little late, each answered: the file, with its
// index by plan and its plan numbers, per row.
TEST_F(History, TakesAtMost60BytesPerRow) {
    Open();
    constexpr int kPlans = 2000;
    constexpr int kRows = 50;
    const qint64 base = At("2026-03-10 00:00:00");
    for (int hour = 0; hour < kRows; ++hour) {
        for (int i = 0; i < kPlans; ++i) {
            const QString plan =
                QString("%1-4c1d-8e2f-9a0b-%2").arg(i, 8, 16, QChar('0')).arg(i, 12, 10, QChar('0'));
            const qint64 due = base + hour * 3600000LL + i * 1000LL;
            m_store.RecordOccurrence(plan, Ran(due, 3 + i % 200));
            m_store.RecordResult(plan, 0, due + 40000 + i);
        }
        ASSERT_TRUE(m_store.Flush());
    }
    m_store.Close();
    const QString path = m_dir.filePath("state.db");
    const qint64 bytes = QFileInfo(path).size() + QFileInfo(path + "-wal").size();
    EXPECT_LE(bytes / (kPlans * kRows), 60) << bytes;
    std::printf("history: %lld bytes per row\n", bytes / (kPlans * kRows));
}
} // namespace
