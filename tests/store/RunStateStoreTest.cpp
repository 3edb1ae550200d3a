// The run state file: batches, bad files set aside, rows of deleted plans.
#include "support/LogCapture.h"

#include "store/RunStateStore.h"
#include "triggers/TriggerObject.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {
QSet<QString> Plans(int count) {
    QSet<QString> plans;
    for (int i = 0; i < count; ++i) {
        plans.insert(QString("plan-%1").arg(i));
    }
    return plans;
}

// Rows as "plan next end due handed result", read by a second connection as
// orvelctl reads them.
QStringList Rows(const QString& path) {
    QStringList rows;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "reader");
        db.setDatabaseName(path);
        EXPECT_TRUE(db.open());
        QSqlQuery query(db);
        query.exec("SELECT plan_uuid, next_start, end_flag, last_due, last_handed, result FROM runs "
                   "ORDER BY plan_uuid");
        while (query.next()) {
            QStringList fields;
            for (int i = 0; i < 6; ++i) {
                fields << (query.value(i).isNull() ? "-" : query.value(i).toString());
            }
            rows << fields.join(' ');
        }
    }
    QSqlDatabase::removeDatabase("reader");
    return rows;
}

// A second connection to the file, as another program would hold it; a
// transaction it leaves open is rolled back when it goes.
class OtherConnection {
public:
    explicit OtherConnection(const QString& path) {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", kName);
        db.setDatabaseName(path);
        EXPECT_TRUE(db.open());
    }
    ~OtherConnection() {
        Exec("ROLLBACK");
        QSqlDatabase::database(kName, false).close();
        QSqlDatabase::removeDatabase(kName);
    }
    OtherConnection(const OtherConnection&) = delete;
    OtherConnection& operator=(const OtherConnection&) = delete;

    bool Exec(const QString& statement) {
        QSqlQuery query(QSqlDatabase::database(kName, false));
        return query.exec(statement);
    }

private:
    static constexpr const char* kName = "other";
};

TEST(RunStateStore, WritesBatchesThatAReopenedStoreReadsBack) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    {
        RunStateStore store;
        ASSERT_TRUE(store.Open(path, Plans(3)));
        RunStateStore::RecordSchedule("plan-0", 2, "2026-03-10 08:00:00", 0);
        RunStateStore::RecordRun("plan-0", 2, "2026-03-10 08:00:00", 1000);
        RunStateStore::RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
        RunStateStore::RecordSchedule("plan-1", 1, QString(), 1);
        // Nothing reaches the file before the batch is written.
        EXPECT_TRUE(Rows(path).isEmpty());
        ASSERT_TRUE(store.Flush());
        EXPECT_EQ(Rows(path), (QStringList{"plan-0 2026-03-11 08:00:00 0 2026-03-10 08:00:00 1000 -",
                                           "plan-1  1 - - -"}));
        RunStateStore::RecordResult("plan-0", 1, 2000);
        RunStateStore::RecordRun("plan-2", 257, "2026-03-10 09:00:00", 3000);
    }
    // Closing wrote the last batch; recording after it changes nothing.
    RunStateStore::RecordRun("plan-1", 1, "2026-03-12 08:00:00", 4000);
    EXPECT_EQ(Rows(path), (QStringList{"plan-0 2026-03-11 08:00:00 0 2026-03-10 08:00:00 1000 1",
                                       "plan-1  1 - - -", "plan-2 - - 2026-03-10 09:00:00 3000 -"}));

    RunStateStore reopened;
    ASSERT_TRUE(reopened.Open(path, {"plan-0", "plan-2"}));
    const QHash<QString, RunStateStore::StoredRun> runs = reopened.TakeStoredRuns();
    EXPECT_EQ(runs.value("plan-0").lastDue, "2026-03-10 08:00:00");
    EXPECT_EQ(runs.value("plan-0").nextStart, "2026-03-11 08:00:00");
    EXPECT_TRUE(runs.value("plan-2").nextStart.isEmpty());
    // plan-1 is no longer a plan of the service: its row went at the start.
    EXPECT_FALSE(runs.contains("plan-1"));
    EXPECT_EQ(Rows(path).size(), 2);
    RunStateStore::RecordRemoval("plan-2");
    ASSERT_TRUE(reopened.Flush());
    EXPECT_EQ(Rows(path).size(), 1);
}

TEST(RunStateStore, ABatchIsWrittenSoonAfterItsFirstChange) {
    QTemporaryDir dir;
    RunStateStore store;
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), Plans(1)));
    RunStateStore::RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return Rows(dir.filePath("state.db")).size() == 1; }, 10000));
}

// The test thread runs no event loop while it waits, as an application
// thread busy with a long poll would not.
bool WaitWithoutEvents(const std::function<bool()>& done) {
    QElapsedTimer waited;
    waited.start();
    while (!done()) {
        if (waited.hasExpired(10000)) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

class RunStateStoreRecorder : public ::testing::TestWithParam<bool> {};

TEST_P(RunStateStoreRecorder, ABatchIsWrittenWhileTheApplicationThreadIsBusy) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, Plans(1)));
    const auto record = [] { RunStateStore::RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0); };
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
// plan's latest change.
TEST(RunStateStore, CloseAfterRecordingFromManyThreadsLosesNothing) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    constexpr int kThreads = 4;
    constexpr int kPlansEach = 2500;
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, {}));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kPlansEach; ++i) {
                const QString plan = QString("plan-%1-%2").arg(t).arg(i, 5, 10, QChar('0'));
                RunStateStore::RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
                RunStateStore::RecordRun(plan, 2, "2026-03-10 08:00:00", i);
                RunStateStore::RecordSchedule(plan, 2, "2026-03-12 08:00:00", 0);
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
    RunStateStore::RecordRun("plan-0", 2, "2026-03-10 08:00:00", 1000);
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
    ASSERT_TRUE(store.Open(path, Plans(3)));
    LogCapture log;
    OtherConnection other(path);
    const auto fails = [&](const QString& plan) {
        RunStateStore::RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
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
    RunStateStore::RecordRemoval("plan-1");
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
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), Plans(3)));
    QSignalSpy changes(&store, &RunStateStore::summaryChanged);
    RunStateStore::RecordSchedule("plan-0", 2, "2026-03-10 09:00:00", 0);
    RunStateStore::RecordSchedule("plan-1", 2, "2026-03-10 10:00:00", 0);
    store.Flush();
    EXPECT_EQ(store.LastSummary().nextPlan, "plan-0");
    RunStateStore::RecordSchedule("plan-2", 2, "2026-03-10 11:00:00", 0);
    store.Flush();
    EXPECT_EQ(changes.size(), 1);
    // The earliest plan moves on: the next one takes its place.
    RunStateStore::RecordSchedule("plan-0", 2, "2026-03-11 09:00:00", 0);
    store.Flush();
    EXPECT_EQ(store.LastSummary().nextPlan, "plan-1");
    EXPECT_EQ(store.LastSummary().nextStart, "2026-03-10 10:00:00");
    RunStateStore::RecordRemoval("plan-1");
    RunStateStore::RecordSchedule("plan-2", 2, QString(), 1);
    store.Flush();
    EXPECT_EQ(store.LastSummary().nextPlan, "plan-0");
}

struct BadFileCase {
    const char* name;
    std::function<void(const QString& path)> spoil;
};

class RunStateStoreBadFile : public ::testing::TestWithParam<BadFileCase> {};

// A file the store cannot use is kept aside untouched, and a fresh one works.
TEST_P(RunStateStoreBadFile, IsSetAsideWithOneWarningAndAFreshFileStarts) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    GetParam().spoil(path);
    QFile original(path);
    ASSERT_TRUE(original.open(QIODevice::ReadOnly));
    const QByteArray bytes = original.readAll();
    original.close();

    LogCapture log;
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, Plans(1)));
    ASSERT_EQ(log.Lines().size(), 1u) << log.Messages().join('\n').toStdString();
    EXPECT_EQ(log.Lines().front().priority, log4cpp::Priority::WARN);
    EXPECT_TRUE(log.Lines().front().message.contains("cannot be used"));
    const QStringList aside = QDir(dir.path()).entryList({"state.db.bad-*"}, QDir::Files);
    ASSERT_FALSE(aside.isEmpty());
    QFile kept(dir.filePath(aside.filter(QRegExp("bad-\\d+$")).value(0)));
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll().left(bytes.size()), bytes);

    RunStateStore::RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
    EXPECT_TRUE(store.Flush());
    store.Close();
    EXPECT_EQ(Rows(path).size(), 1);
}

void WriteFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
}

void Execute(const QString& path, const QStringList& statements) {
    OtherConnection other(path);
    for (const QString& statement : statements) {
        other.Exec(statement);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RunStateStoreBadFile,
    ::testing::Values(
        BadFileCase{"notADatabase", [](const QString& path) { WriteFile(path, QByteArray(8192, 'x')); }},
        BadFileCase{"truncatedDatabase",
                    [](const QString& path) {
                        Execute(path, {"CREATE TABLE t (x)", "INSERT INTO t VALUES (randomblob(100000))"});
                        QFile file(path);
                        file.resize(3000);
                    }},
        BadFileCase{"laterSchemaVersion",
                    [](const QString& path) { Execute(path, {"PRAGMA user_version = 7"}); }},
        BadFileCase{"foreignRunsTable",
                    [](const QString& path) { Execute(path, {"CREATE TABLE runs (something TEXT)"}); }}),
    [](const ::testing::TestParamInfo<BadFileCase>& info) { return std::string(info.param.name); });

TEST(RunStateStore, ALockedFileIsSetAsideToo) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    OtherConnection other(path);
    ASSERT_TRUE(other.Exec("CREATE TABLE t (x)"));
    ASSERT_TRUE(other.Exec("BEGIN EXCLUSIVE"));
    ASSERT_TRUE(other.Exec("INSERT INTO t VALUES (1)"));
    LogCapture log;
    RunStateStore store;
    EXPECT_TRUE(store.Open(path, Plans(1)));
    EXPECT_EQ(log.CountContaining("cannot be used"), 1);
    EXPECT_EQ(QDir(dir.path()).entryList({"state.db.bad-*"}).size(), 1);
}

TEST(RunStateStore, AMissingFileIsSaidOnceAndCreated) {
    QTemporaryDir dir;
    LogCapture log;
    RunStateStore store;
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), {}));
    EXPECT_EQ(log.CountContaining("is missing; a fresh one is started."), 1);
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_TRUE(QFile::exists(dir.filePath("state.db")));
}

RunStateStore::Schedule FullSchedule(int i) {
    RunStateStore::Schedule schedule;
    schedule.nextStart = "2026-03-11 08:00:00";
    schedule.nextStartMSecs = 1773212400000 + i;
    schedule.nextStartOffsetSecs = 3600;
    schedule.repeatCount = 40 + i % 100;
    schedule.startOffsetSecs = 1800 + i % 1000;
    schedule.firstSeekDone = 1;
    schedule.filledStart = "2026-03-01 07:59:00";
    schedule.fingerprint = 0x7123456789abcdefULL - static_cast<quint64>(i);
    return schedule;
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
            RunStateStore::RecordSchedule(plan, 1 + i % 4, FullSchedule(i));
            RunStateStore::RecordRun(plan, 1 + i % 4, "2026-03-10 08:00:00", 1773129600000 + i);
            RunStateStore::RecordResult(plan, 0, 1773129601000 + i);
        }
        ASSERT_TRUE(store.Flush());
    }
    const qint64 bytes = QFileInfo(path).size() + QFileInfo(path + "-wal").size();
    EXPECT_LE(bytes / kPlans, 200) << bytes;
}
} // namespace

namespace {
// A held batch is not written, however long it waits; released, it goes at once.
TEST(RunStateStore, AHeldBatchWaitsForItsRelease) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, Plans(2)));
    RunStateStore::HoldBatch(true);
    RunStateStore::RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
    QTest::qWait(RunStateStore::kBatchMSecs * 3);
    RunStateStore::RecordSchedule("plan-1", 2, "2026-03-11 09:00:00", 0);
    QTest::qWait(RunStateStore::kBatchMSecs * 3);
    EXPECT_TRUE(Rows(path).isEmpty());
    RunStateStore::HoldBatch(false);
    EXPECT_TRUE(WaitWithoutEvents([&] { return Rows(path).size() == 2; }));
}
} // namespace

namespace {
// A file of the first schema version opens, keeps its rows and gains the
// columns of the second in place; its rows resume nothing.
TEST(RunStateStore, AFileOfTheFirstVersionIsMigratedInPlace) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    Execute(path,
            {"CREATE TABLE runs (plan_uuid TEXT PRIMARY KEY NOT NULL, trigger_type INTEGER, next_start "
             "TEXT, end_flag INTEGER, last_due TEXT, last_handed INTEGER, result INTEGER, result_at "
             "INTEGER) WITHOUT ROWID",
             "CREATE TABLE meta (key TEXT PRIMARY KEY NOT NULL, value) WITHOUT ROWID",
             "INSERT INTO runs VALUES ('plan-0', 2, '2026-03-11 08:00:00', 0, '2026-03-10 08:00:00', 5, "
             "0, 6)",
             "PRAGMA user_version = 1"});
    LogCapture log;
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, Plans(1)));
    EXPECT_EQ(log.CountContaining("cannot be used"), 0);
    TriggerObject object;
    object.setDefinitionFingerprint(1);
    EXPECT_EQ(store.Resume({{"plan-0", &object}}), 0);
    EXPECT_EQ(store.TakeStoredRuns().value("plan-0").lastDue, "2026-03-10 08:00:00");
    RunStateStore::RecordSchedule("plan-0", 2, FullSchedule(0));
    ASSERT_TRUE(store.Flush());
    store.Close();
    EXPECT_EQ(Rows(path), QStringList{"plan-0 2026-03-11 08:00:00 0 2026-03-10 08:00:00 5 0"});
    OtherConnection other(path);
    EXPECT_TRUE(other.Exec("SELECT fingerprint FROM runs"));
}

struct ResumeCase {
    const char* name;
    std::function<void(RunStateStore::Schedule&, TriggerObject&)> change;
    bool resumes;
};

class RunStateResume : public ::testing::TestWithParam<ResumeCase> {};

// Only a row computed from the plan's present definition, and whole, gives the
// plan back its progress; anything else leaves the plan to a first computation.
TEST_P(RunStateResume, TakesBackOnlyAWholeRowOfTheSameDefinition) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore::Schedule kept = FullSchedule(0);
    kept.nextStartMSecs = QDateTime::fromString(kept.nextStart, "yyyy-MM-dd hh:mm:ss").toMSecsSinceEpoch();
    TriggerObject object;
    object.setPlanUuid("plan-0");
    object.setDefinitionFingerprint(kept.fingerprint);
    GetParam().change(kept, object);
    {
        RunStateStore first;
        ASSERT_TRUE(first.Open(path, Plans(1)));
        RunStateStore::RecordSchedule("plan-0", 2, kept);
    }
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, Plans(1)));
    EXPECT_EQ(store.Resume({{object.getPlanUuid(), &object}}), GetParam().resumes ? 1 : 0);
    EXPECT_EQ(store.TakeStoredRuns().value(object.getPlanUuid()).resumed, GetParam().resumes);
    if (!GetParam().resumes) {
        EXPECT_EQ(object.getFirstSeekDone(), 0u);
        return;
    }
    EXPECT_EQ(object.getFirstSeekDone(), 1u);
    EXPECT_EQ(object.getRepeatCount(), kept.repeatCount);
    EXPECT_EQ(object.getStartOffsetSecs(), kept.startOffsetSecs);
    EXPECT_EQ(object.getObjectTriggerAttribute().getTriggerEndFlag(), kept.endFlag);
    EXPECT_EQ(object.getNextStartMSecs(), kept.endFlag != 0 ? 0 : kept.nextStartMSecs);
    EXPECT_EQ(object.getObjectTriggerAttribute().getStartTime(), kept.filledStart);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RunStateResume,
    ::testing::Values(
        ResumeCase{"unchanged", [](RunStateStore::Schedule&, TriggerObject&) {}, true},
        ResumeCase{"ended", [](RunStateStore::Schedule& kept, TriggerObject&) { kept.endFlag = 1; }, true},
        ResumeCase{"modified", [](RunStateStore::Schedule& kept, TriggerObject&) { kept.fingerprint += 1; },
                   false},
        ResumeCase{"newPlan",
                   [](RunStateStore::Schedule&, TriggerObject& object) { object.setPlanUuid("plan-1"); },
                   false},
        ResumeCase{"neverComputed",
                   [](RunStateStore::Schedule& kept, TriggerObject&) { kept.firstSeekDone = 0; }, false},
        ResumeCase{"noInstant",
                   [](RunStateStore::Schedule& kept, TriggerObject&) { kept.nextStartMSecs = 0; }, false},
        ResumeCase{"textNotATime",
                   [](RunStateStore::Schedule& kept, TriggerObject&) { kept.nextStart = "tomorrow"; }, false},
        ResumeCase{
            "textAndInstantApart",
            [](RunStateStore::Schedule& kept, TriggerObject&) { kept.nextStartMSecs -= 2 * 86400000LL; },
            false},
        ResumeCase{"rowOfAnEventTrigger",
                   [](RunStateStore::Schedule& kept, TriggerObject&) { kept.fingerprint = 0; }, false}),
    [](const ::testing::TestParamInfo<ResumeCase>& info) { return std::string(info.param.name); });
} // namespace
