// The state file: bad files set aside, older files migrated, rows resumed.
#include "OtherConnection.h"
#include "RunStateTestData.h"
#include "support/LogCapture.h"

#include "store/RunStateStore.h"
#include "triggers/TriggerObject.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

#include <functional>

namespace {
using namespace RunStateTestData;

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
    ASSERT_TRUE(store.Open(path, LiveAmong(Plans(1))));
    ASSERT_EQ(log.Lines().size(), 1u) << log.Messages().join('\n').toStdString();
    EXPECT_EQ(log.Lines().front().priority, log4cpp::Priority::WARN);
    EXPECT_TRUE(log.Lines().front().message.contains("cannot be used"));
    const QStringList aside = QDir(dir.path()).entryList({"state.db.bad-*"}, QDir::Files);
    ASSERT_FALSE(aside.isEmpty());
    QFile kept(dir.filePath(aside.filter(QRegExp("bad-\\d+$")).value(0)));
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll().left(bytes.size()), bytes);

    store.RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
    EXPECT_TRUE(store.Flush());
    store.Close();
    EXPECT_EQ(Rows(path).size(), 1);
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
    EXPECT_TRUE(store.Open(path, LiveAmong(Plans(1))));
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
    ASSERT_TRUE(store.Open(path, LiveAmong(Plans(1))));
    EXPECT_EQ(log.CountContaining("cannot be used"), 0);
    TriggerObject object;
    object.setDefinitionFingerprint(1);
    EXPECT_EQ(store.Resume({{"plan-0", &object}}), 0);
    EXPECT_EQ(store.TakeStoredRuns().value("plan-0").lastDue, "2026-03-10 08:00:00");
    store.RecordSchedule("plan-0", 2, FullSchedule(0));
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
        ASSERT_TRUE(first.Open(path, LiveAmong(Plans(1))));
        first.RecordSchedule("plan-0", 2, kept);
    }
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, LiveAmong(Plans(1))));
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

namespace {
// Rows of deleted plans that cannot be removed (another program holds the
// file's write lock) stay, with one line; the store goes on.
TEST(RunStateStore, RowsThatCannotBePrunedStayWithOneLine) {
    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    {
        RunStateStore first;
        ASSERT_TRUE(first.Open(path, {}));
        for (const QString& plan : Plans(3)) {
            first.RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
        }
    }
    OtherConnection other(path);
    ASSERT_TRUE(other.Exec("BEGIN IMMEDIATE"));
    LogCapture log;
    RunStateStore store;
    ASSERT_TRUE(store.Open(path, LiveAmong(Plans(1))));
    EXPECT_EQ(log.CountContaining("deleted plans cannot be removed"), 1);
    EXPECT_EQ(store.TakeStoredRuns().keys(), QStringList{"plan-0"});
    ASSERT_TRUE(other.Exec("ROLLBACK"));
    EXPECT_EQ(Rows(path).size(), 3);
    store.RecordSchedule("plan-0", 2, "2026-03-12 08:00:00", 0);
    EXPECT_TRUE(store.Flush());
}
} // namespace
