// The run state's batches: what reaches the file, when, and after a failure.
#include "OtherConnection.h"
#include "RunStateTestData.h"
#include "support/LogCapture.h"

#include "store/RunStateStore.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {
using namespace RunStateTestData;

TEST(RunStateStore, WritesBatchesThatAReopenedStoreReadsBack) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
    {
        ASSERT_TRUE(store.Open(path, LiveAmong(Plans(3))));
        store.RecordSchedule("plan-0", 2, "2026-03-10 08:00:00", 0);
        store.RecordRun("plan-0", 2, "2026-03-10 08:00:00", 1000);
        store.RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
        store.RecordSchedule("plan-1", 1, QString(), 1);
        // Nothing reaches the file before the batch is written.
        EXPECT_TRUE(Rows(path).isEmpty());
        ASSERT_TRUE(store.Flush());
        EXPECT_EQ(Rows(path), (QStringList{"plan-0 2026-03-11 08:00:00 0 2026-03-10 08:00:00 1000 -",
                                           "plan-1  1 - - -"}));
        store.RecordResult("plan-0", 1, 2000);
        store.RecordRun("plan-2", 257, "2026-03-10 09:00:00", 3000);
        store.Close();
    }
    // Closing wrote the last batch; recording after it changes nothing.
    store.RecordRun("plan-1", 1, "2026-03-12 08:00:00", 4000);
    EXPECT_EQ(Rows(path), (QStringList{"plan-0 2026-03-11 08:00:00 0 2026-03-10 08:00:00 1000 1",
                                       "plan-1  1 - - -", "plan-2 - - 2026-03-10 09:00:00 3000 -"}));

    RunStateStore reopened;
    ASSERT_TRUE(reopened.Open(path, LiveAmong({"plan-0", "plan-2"})));
    const QHash<QString, RunStateStore::StoredRun> runs = reopened.TakeStoredRuns();
    EXPECT_EQ(runs.value("plan-0").lastDue, "2026-03-10 08:00:00");
    EXPECT_EQ(runs.value("plan-0").nextStart, "2026-03-11 08:00:00");
    EXPECT_TRUE(runs.value("plan-2").nextStart.isEmpty());
    // plan-1 is no longer a plan of the service: its row went at the start.
    EXPECT_FALSE(runs.contains("plan-1"));
    EXPECT_EQ(Rows(path).size(), 2);
    reopened.RecordRemoval("plan-2");
    ASSERT_TRUE(reopened.Flush());
    EXPECT_EQ(Rows(path).size(), 1);
}

TEST(RunStateStore, ABatchIsWrittenSoonAfterItsFirstChange) {
    QTemporaryDir dir;
    RunStateStore store;
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), LiveAmong(Plans(1))));
    store.RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return Rows(dir.filePath("state.db")).size() == 1; }, 10000));
}

class RunStateStoreRecorder : public ::testing::TestWithParam<bool> {};

TEST_P(RunStateStoreRecorder, ABatchIsWrittenWhileTheApplicationThreadIsBusy) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, LiveAmong(Plans(1))));
    const auto record = [&store] { store.RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0); };
    if (GetParam()) {
        std::thread(record).join();
    } else {
        record();
    }
    EXPECT_TRUE(WaitWithoutEvents([&] { return Rows(path).size() == 1; }));
    EXPECT_TRUE(WaitWithoutEvents([&] { return store.LastSummary().nextPlan == "plan-0"; }));
}

INSTANTIATE_TEST_SUITE_P(RecordedOn, RunStateStoreRecorder, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "anotherThread" : "applicationThread");
                         });

// Threads record while the writer writes; closing right after keeps every

TEST(RunStateStore, CloseAfterRecordingFromManyThreadsLosesNothing) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    constexpr int kThreads = 4;
    constexpr int kPlansEach = 2500;
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, {}));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &store] {
            for (int i = 0; i < kPlansEach; ++i) {
                const QString plan = QString("plan-%1-%2").arg(t).arg(i, 5, 10, QChar('0'));
                store.RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
                store.RecordRun(plan, 2, "2026-03-10 08:00:00", i);
                store.RecordSchedule(plan, 2, "2026-03-12 08:00:00", 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    store.Close();
    store.Close();
    const QStringList rows = Rows(path);
    ASSERT_EQ(rows.size(), kThreads * kPlansEach);
    EXPECT_EQ(rows.filter(" 2026-03-12 08:00:00 0 2026-03-10 08:00:00 ").size(), rows.size());
    EXPECT_EQ(rows.last(), "plan-3-02499 2026-03-12 08:00:00 0 2026-03-10 08:00:00 2499 -");
}

TEST(RunStateStore, CloseIsHarmlessWithoutAnOpenFile) {
    QTemporaryDir dir;
    {
        RunStateStore never;
        never.Close();
    }
    LogCapture log;
    RunStateStore failed;
    EXPECT_FALSE(failed.Open(dir.filePath("no/such/folder/state.db"), {}));
    EXPECT_EQ(log.CountContaining("cannot be created"), 1);
    failed.RecordRun("plan-0", 2, "2026-03-10 08:00:00", 1000);
    EXPECT_TRUE(failed.Flush());
    failed.Close();
    failed.Close();
}

// A write that fails says so once per streak, and what it could not write goes
// with the next batch.
TEST(RunStateStore, AFailingWriteIsSaidOncePerStreakAndLosesNothing) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, LiveAmong(Plans(3))));
    LogCapture log;
    OtherConnection other(path);
    const auto fails = [&](const QString& plan) {
        store.RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
        return !store.Flush();
    };
    ASSERT_TRUE(other.Exec("BEGIN EXCLUSIVE"));
    EXPECT_TRUE(fails("plan-0"));
    EXPECT_TRUE(fails("plan-1"));
    EXPECT_EQ(log.CountContaining("could not be written"), 1);
    ASSERT_TRUE(other.Exec("ROLLBACK"));
    EXPECT_FALSE(fails("plan-2"));
    EXPECT_EQ(Rows(path).size(), 3);

    ASSERT_TRUE(other.Exec("BEGIN EXCLUSIVE"));
    store.RecordRemoval("plan-1");
    EXPECT_FALSE(store.Flush());
    EXPECT_EQ(log.CountContaining("could not be written"), 2);
    ASSERT_TRUE(other.Exec("ROLLBACK"));
    store.Close();
    EXPECT_EQ(Rows(path),
              (QStringList{"plan-0 2026-03-11 08:00:00 0 - - -", "plan-2 2026-03-11 08:00:00 0 - - -"}));
}

TEST(RunStateStore, FollowsTheEarliestNextStart) {
    QTemporaryDir dir;
    RunStateStore store;
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), LiveAmong(Plans(3))));
    QSignalSpy changes(&store, &RunStateStore::summaryChanged);
    store.RecordSchedule("plan-0", 2, "2026-03-10 09:00:00", 0);
    store.RecordSchedule("plan-1", 2, "2026-03-10 10:00:00", 0);
    store.Flush();
    EXPECT_EQ(store.LastSummary().nextPlan, "plan-0");
    store.RecordSchedule("plan-2", 2, "2026-03-10 11:00:00", 0);
    store.Flush();
    EXPECT_EQ(changes.size(), 1);
    // The earliest plan moves on: the next one takes its place.
    store.RecordSchedule("plan-0", 2, "2026-03-11 09:00:00", 0);
    store.Flush();
    EXPECT_EQ(store.LastSummary().nextPlan, "plan-1");
    EXPECT_EQ(store.LastSummary().nextStart, "2026-03-10 10:00:00");
    store.RecordRemoval("plan-1");
    store.RecordSchedule("plan-2", 2, QString(), 1);
    store.Flush();
    EXPECT_EQ(store.LastSummary().nextPlan, "plan-0");
}

// The disk a million plans need: at most 200 bytes per plan with every column
// filled.
TEST(RunStateStore, TakesAtMost200BytesPerPlan) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    constexpr int kPlans = 20000;
    {
        RunStateStore store;
        ASSERT_TRUE(store.Open(path, {}));
        for (int i = 0; i < kPlans; ++i) {
            const QString plan =
                QString("%1-4c1d-8e2f-9a0b-%2").arg(i, 8, 16, QChar('0')).arg(i, 12, 10, QChar('0'));
            store.RecordSchedule(plan, 1 + i % 4, FullSchedule(i));
            store.RecordRun(plan, 1 + i % 4, "2026-03-10 08:00:00", 1773129600000 + i);
            store.RecordResult(plan, 0, 1773129601000 + i);
        }
        ASSERT_TRUE(store.Flush());
    }
    const qint64 bytes = QFileInfo(path).size() + QFileInfo(path + "-wal").size();
    EXPECT_LE(bytes / kPlans, 200) << bytes;
}
} // namespace
