// The registry and the data store over a temporary SQLite file.
#include "support/LogCapture.h"
#include "support/TriggerBuilder.h"

#include "framework/CommandBuilder.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"
#include "store/SchedulerDataStoreManager.h"
#include "store/SchedulerMemoryObjects.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <thread>

namespace {
QString StoreDatabase(const QString& path, int plans) {
    DatabaseFunctionOperation database;
    QString error;
    EXPECT_TRUE(database.OpenForWriting(path, error)) << error.toStdString();
    for (int i = 0; i < plans; ++i) {
        TriggerAttribute attribute = MakeAttribute({static_cast<quint64>(1 + i % 4), "2026-03-10 08:00:00"});
        EXPECT_TRUE(database.StoreTrigger(QString("plan-%1").arg(i), "stored name", attribute, error));
    }
    return path;
}

QByteArray Digest(const QString& path) {
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

class DataStore : public ::testing::Test {
protected:
    void TearDown() override {
        store.UnInit();
        store.UnInit();
    }
    QString Path(const char* name) const { return dir.filePath(name); }

    QTemporaryDir dir;
    SchedulerDataStoreManager store;
    LogCapture log;
};

TEST_F(DataStore, LoadsEveryStoredPlanWithoutItsName) {
    StoreDatabase(Path("alldb.db"), 3);
    ASSERT_TRUE(store.Init(Path("alldb.db")));
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObjectHash()->size(), 3);
    TriggerObject* object = SchedulerDataStoreManager::GetTriggerObject("plan-2");
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->getPlanUuid(), "plan-2");
    EXPECT_TRUE(object->getPlanName().isEmpty());
    EXPECT_EQ(object->getObjectTriggerAttribute().getTriggerType(), 3u);
    EXPECT_EQ(object->getObjectTriggerAttribute().getStartTime(), "2026-03-10 08:00:00");
    EXPECT_EQ(object->getFirstSeekDone(), 0u);
}

TEST_F(DataStore, PlansShareEqualCalendarTexts) {
    DatabaseFunctionOperation database;
    QString error;
    ASSERT_TRUE(database.OpenForWriting(Path("alldb.db"), error));
    for (const char* plan : {"a", "b"}) {
        ASSERT_TRUE(database.StoreTrigger(
            plan, "", MakeAttribute({3, "2026-03-10 08:00:00", "", 0, 0, "1,3,5"}), error));
    }
    database.UnInit();
    ASSERT_TRUE(store.Init(Path("alldb.db")));
    const QString a =
        SchedulerDataStoreManager::GetTriggerObject("a")->getObjectTriggerAttribute().getWeekDays();
    const QString b =
        SchedulerDataStoreManager::GetTriggerObject("b")->getObjectTriggerAttribute().getWeekDays();
    EXPECT_EQ(a, "1,3,5");
    EXPECT_EQ(a.constData(), b.constData());
}

TEST_F(DataStore, MissingFileGivesAnEmptyRegistry) {
    ASSERT_TRUE(store.Init(Path("absent.db")));
    EXPECT_TRUE(SchedulerDataStoreManager::GetTriggerObjectHash()->isEmpty());
    EXPECT_FALSE(QFile::exists(Path("absent.db")));
}

TEST_F(DataStore, EmptyPathIsRefused) {
    EXPECT_FALSE(store.Init(""));
    EXPECT_TRUE(log.Has(log4cpp::Priority::DEBUG, "dbfile.isEmpty"));
}

void Execute(const QString& path, const QStringList& statements) {
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "edit");
        db.setDatabaseName(path);
        ASSERT_TRUE(db.open());
        for (const QString& statement : statements) {
            QSqlQuery query(db);
            EXPECT_TRUE(query.exec(statement)) << statement.toStdString();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase("edit");
}

void WriteFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

struct BrokenFile {
    const char* name;
    std::function<void(const QString&)> arrange;
    const char* reason;
};

// Whatever is at the database's path and cannot be used gets one error line
// with the file, the reason and the consequence, and is left as it was.
TEST_F(DataStore, RefusesBrokenFilesWithOneClearLineWithoutTouchingThem) {
    const BrokenFile cases[] = {
        {"text.db", [](const QString& p) { WriteFile(p, "this is not a database\n"); },
         "it is not an SQLite database"},
        {"random.db", [](const QString& p) { WriteFile(p, QByteArray(4096, '\x5a')); },
         "it is not an SQLite database"},
        {"empty.db", [](const QString& p) { WriteFile(p, ""); }, "the file is empty"},
        {"directory.db", [](const QString& p) { QDir().mkpath(p); }, "it is not a regular file"},
        {"other.db", [](const QString& p) { Execute(p, {"CREATE TABLE unrelated (x INTEGER)"}); },
         "it holds no trigger table"},
        {"old.db", [](const QString& p) { Execute(p, {"CREATE TABLE triggers (plan_uuid TEXT)"}); },
         "its trigger table lacks a column"},
    };
    for (const BrokenFile& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = Path(c.name);
        c.arrange(path);
        const QByteArray before = Digest(path);
        log.Clear();
        EXPECT_FALSE(store.Init(path));
        const QString line = QString("Cannot load the plans database %1: %2").arg(path, c.reason);
        EXPECT_EQ(log.CountContaining(line), 1) << log.Messages().join("\n").toStdString();
        EXPECT_TRUE(store.getFailure().startsWith(line));
        EXPECT_TRUE(store.getFailure().endsWith("; the service runs without plans and accepts no commands."));
        store.UnInit();
        EXPECT_EQ(Digest(path), before);
    }
}

struct BadRow {
    const char* plan;
    const char* set;
    const char* reason;
};

// A row that cannot become a working trigger is skipped with one warn line
// naming the plan and why; every other row loads.
TEST_F(DataStore, SkipsRowsThatCannotBecomeWorkingTriggers) {
    const BadRow rows[] = {
        {"type-0", "trigger_type = 0", "trigger type 0 has no fire"},
        {"type-9", "trigger_type = 9", "trigger type 9 has no fire"},
        {"negative-type", "trigger_type = -1", "its trigger_type cannot be read"},
        {"word-interval", "interval_secs = 'often'", "its interval_secs cannot be read"},
        {"real-duration", "duration_secs = 1.5", "its duration_secs cannot be read"},
        {"blob-flag", "end_flag = x'01'", "its end_flag cannot be read"},
        {"impossible-start", "start_time = '2026-02-30 25:61:00'",
         "start time \"2026-02-30 25:61:00\" is not a valid"},
        {"word-end", "end_time = 'tomorrow'", "end time \"tomorrow\" is not a valid"},
        {"day-8", "trigger_type = 3, week_days = '1,8'", "week days \"1,8\" hold \"8\""},
        {"month-13", "trigger_type = 4, months = '13'", "months \"13\" hold \"13\""},
        {"month-day-99", "trigger_type = 4, month_days = '1, 99'", "month days \"1, 99\" hold \"99\""},
        {"endless-interval", "interval_secs = 3162240001", "interval 3162240001 s is beyond a century"},
        {"forged\nline", "trigger_type = 0", "trigger type 0"},
    };
    QStringList statements;
    for (const BadRow& row : rows) {
        statements << QString("INSERT INTO triggers (plan_uuid, trigger_type, start_time) VALUES ('%1', 2, "
                              "'2026-03-10 08:00:00')")
                          .arg(row.plan)
                   << QString("UPDATE triggers SET %1 WHERE plan_uuid = '%2'").arg(row.set, row.plan);
    }
    statements
        << QString("INSERT INTO triggers (plan_uuid, trigger_type) VALUES ('%1', 2)").arg(QString(256, 'u'))
        << "INSERT INTO triggers (plan_uuid, trigger_type, start_time, week_days) VALUES "
           "('event-ignores-calendar', 257, 'whenever', '99')";
    StoreDatabase(Path("alldb.db"), 5);
    Execute(Path("alldb.db"), statements);
    ASSERT_TRUE(store.Init(Path("alldb.db")));
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObjectHash()->size(), 6);
    EXPECT_NE(SchedulerDataStoreManager::GetTriggerObject("event-ignores-calendar"), nullptr);
    for (const BadRow& row : rows) {
        SCOPED_TRACE(row.plan);
        EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject(row.plan), nullptr);
        const QString plan = QString(row.plan).replace("\n", "\\n");
        EXPECT_EQ(log.CountContaining(QString("Skipped the stored plan [%1]: %2").arg(plan, row.reason)), 1)
            << log.Messages().join("\n").toStdString();
    }
    EXPECT_EQ(log.CountContaining("the plan UUID is 256 bytes long, more than 255"), 1);
    EXPECT_EQ(log.CountContaining("Skipped the stored plan"), static_cast<int>(std::size(rows)) + 1);
}

// A writer that died inside a transaction leaves its changes in the file and
// the originals in the journal; the committed plans are what loads.
TEST_F(DataStore, RollsBackTheHotJournalOfACrashedWriter) {
    StoreDatabase(Path("alldb.db"), 300);
    QDir().mkpath(Path("crash"));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "writer");
        db.setDatabaseName(Path("alldb.db"));
        ASSERT_TRUE(db.open());
        QSqlQuery query(db);
        // A tiny cache makes the uncommitted deletion reach the file itself.
        ASSERT_TRUE(query.exec("PRAGMA cache_size = 2"));
        ASSERT_TRUE(query.exec("BEGIN"));
        ASSERT_TRUE(query.exec("DELETE FROM triggers"));
        ASSERT_TRUE(QFile::exists(Path("alldb.db-journal")));
        ASSERT_TRUE(QFile::copy(Path("alldb.db"), Path("crash/alldb.db")));
        ASSERT_TRUE(QFile::copy(Path("alldb.db-journal"), Path("crash/alldb.db-journal")));
        query.exec("ROLLBACK");
        db.close();
    }
    QSqlDatabase::removeDatabase("writer");
    ASSERT_TRUE(store.Init(Path("crash/alldb.db")));
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObjectHash()->size(), 300);
    EXPECT_FALSE(QFile::exists(Path("crash/alldb.db-journal")));
}

// The service reads: however it opens the file, no statement of its own can
// change it.
TEST_F(DataStore, WritesNothing) {
    StoreDatabase(Path("alldb.db"), 3);
    const QByteArray before = Digest(Path("alldb.db"));
    ASSERT_TRUE(store.Init(Path("alldb.db")));
    store.UnInit();
    EXPECT_EQ(Digest(Path("alldb.db")), before);
    EXPECT_FALSE(QFile::exists(Path("alldb.db-journal")));
}

CommCommand* NewPlanRequest(const QString& planUuid, const TriggerDefinition& definition) {
    auto* request = static_cast<RequestCommand*>(CommandBuilder::BuilderCommand(200));
    request->setPlanUuid(planUuid);
    RequestNewOperationData data;
    data.setTriggerAttribute(MakeAttribute(definition));
    CommandBuilder::DataToBytearray(&data, request->getRfrnRequestData());
    return request;
}

CommCommand* ModifyRequest(const QString& planUuid, const QString& name,
                           const TriggerDefinition& definition) {
    auto* request = static_cast<RequestCommand*>(CommandBuilder::BuilderCommand(204));
    request->setPlanUuid(planUuid);
    SchedulerPlanData data;
    data.getRfrnSchedulerPlan().setPlanName(name);
    data.getRfrnSchedulerPlan().getObjectTriggerAttribute() = MakeAttribute(definition);
    CommandBuilder::DataToBytearray(&data, request->getRfrnRequestData());
    return request;
}

TEST_F(DataStore, AddModifyAndDeletePlans) {
    ASSERT_TRUE(store.Init(Path("absent.db")));
    std::unique_ptr<CommCommand> add(NewPlanRequest("p", {2, "2026-03-10 08:00:00"}));
    TriggerObject* added = SchedulerDataStoreManager::AddTriggerObject(add.get());
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->getPlanUuid(), "p");
    std::unique_ptr<CommCommand> again(NewPlanRequest("p", {3, "2026-03-10 09:00:00"}));
    EXPECT_EQ(SchedulerDataStoreManager::AddTriggerObject(again.get()), nullptr);
    EXPECT_EQ(added->getObjectTriggerAttribute().getTriggerType(), 2u);

    added->setRepeatCount(4);
    added->setFirstSeekDone(1);
    added->setNextStartTime("2026-03-10 08:00:00");
    added->getObjectTriggerAttribute().setTriggerEndFlag(1);
    std::unique_ptr<CommCommand> modify(ModifyRequest("p", "Renamed", {3, "2026-03-11 07:00:00"}));
    TriggerObject* modified = SchedulerDataStoreManager::ModifyTriggerObject(modify.get());
    EXPECT_EQ(modified, added);
    EXPECT_EQ(modified->getPlanName(), "Renamed");
    EXPECT_EQ(modified->getObjectTriggerAttribute().getTriggerType(), 3u);
    EXPECT_EQ(modified->getRepeatCount(), 0u);
    EXPECT_EQ(modified->getFirstSeekDone(), 0u);
    EXPECT_TRUE(modified->getNextStartTime().isEmpty());
    EXPECT_EQ(modified->getObjectTriggerAttribute().getTriggerEndFlag(), 0u);

    std::unique_ptr<CommCommand> modifyNew(ModifyRequest("q", "New", {1, "2026-03-11 07:00:00"}));
    EXPECT_NE(SchedulerDataStoreManager::ModifyTriggerObject(modifyNew.get()), nullptr);
    EXPECT_NE(SchedulerDataStoreManager::GetTriggerObject("q"), nullptr);

    ResultCommand result;
    EXPECT_FALSE(SchedulerDataStoreManager::DeleteTriggerObject("unknown", &result, nullptr));
    EXPECT_EQ(result.getUintResult(), 1u);
    EXPECT_TRUE(SchedulerDataStoreManager::DeleteTriggerObject("p", &result, nullptr));
    EXPECT_EQ(result.getUintResult(), 0u);
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject("p"), nullptr);
    EXPECT_FALSE(SchedulerDataStoreManager::DeleteTriggerObject("p", nullptr, nullptr));
}

TEST_F(DataStore, UndecodablePayloadsRegisterNothing) {
    ASSERT_TRUE(store.Init(Path("absent.db")));
    auto* request = static_cast<RequestCommand*>(CommandBuilder::BuilderCommand(200));
    request->setPlanUuid("bad");
    request->getRfrnRequestData() = "garbage";
    EXPECT_EQ(SchedulerDataStoreManager::AddTriggerObject(request), nullptr);
    EXPECT_EQ(SchedulerDataStoreManager::ModifyTriggerObject(request), nullptr);
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject("bad"), nullptr);
    CommandBuilder::DestroyCommand(request);
}

TEST(Registry, InsertFindTakeAndClear) {
    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    EXPECT_EQ(registry->FindTriggerObject("a"), nullptr);
    auto* first = new TriggerObject();
    EXPECT_FALSE(registry->InsertTriggerObject("a", first));
    ASSERT_TRUE(registry->Init());
    EXPECT_FALSE(registry->InsertTriggerObject("", first));
    EXPECT_FALSE(registry->InsertTriggerObject("a", nullptr));
    EXPECT_TRUE(registry->InsertTriggerObject("a", first));
    TriggerObject second;
    EXPECT_FALSE(registry->InsertTriggerObject("a", &second));
    EXPECT_EQ(registry->FindTriggerObject("a"), first);
    EXPECT_EQ(registry->TakeTriggerObject("b"), nullptr);
    TriggerObject* taken = registry->TakeTriggerObject("a");
    EXPECT_EQ(taken, first);
    registry->ClearTriggerObjects();
    delete taken;
    EXPECT_TRUE(registry->InsertTriggerObject("c", new TriggerObject()));
    registry->UnInit();
    SchedulerMemoryObjects* fresh = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    EXPECT_EQ(fresh->GetTriggerObjectHash(), nullptr);
    EXPECT_EQ(fresh->FindTriggerObject("c"), nullptr);
}

// Insert, find, take and clear from two threads at once.
TEST(Registry, TwoThreadsAtOnce) {
    SchedulerMemoryObjects* registry = INSTANCE_SCHEDULER_MEMORY_OBJECTS;
    ASSERT_TRUE(registry->Init());
    auto work = [registry](const QString& prefix) {
        for (int i = 0; i < 2000; ++i) {
            const QString key = prefix + QString::number(i);
            registry->InsertTriggerObject(key, new TriggerObject());
            registry->FindTriggerObject(key);
            delete registry->TakeTriggerObject(key);
            if (i % 500 == 0) {
                registry->ClearTriggerObjects();
            }
        }
    };
    std::thread other(work, QString("x"));
    work("y");
    other.join();
    {
        QMutexLocker locker(registry->GetTriggerObjectMutex());
        EXPECT_TRUE(registry->GetTriggerObjectHash()->isEmpty());
    }
    registry->UnInit();
}

TEST(TriggerObjectRecord, CopiesAreIndependentAndStreamAllFields) {
    TriggerObject object = MakeTrigger("p", {3, "2026-03-10 08:00:00", "", 600});
    object.setPlanName("name");
    object.setRepeatCount(2);
    object.setStartOffsetSecs(120);
    object.setFirstSeekDone(1);
    object.setNextStartTime("2026-03-10 08:10:00");
    TriggerObject copy(object);
    copy.getObjectTriggerAttribute().setInterval(1);
    copy.setNextStartTime("");
    EXPECT_EQ(object.getObjectTriggerAttribute().getInterval(), 600u);
    EXPECT_EQ(object.getNextStartTime(), "2026-03-10 08:10:00");

    bool readToTheEnd = false;
    const TriggerObject read = ThroughTheWire(object, &readToTheEnd);
    EXPECT_EQ(read.getPlanUuid(), "p");
    EXPECT_EQ(read.getPlanName(), "name");
    EXPECT_TRUE(read.getTriggerAttribute() == object.getTriggerAttribute());
    EXPECT_EQ(read.getRepeatCount(), 2u);
    EXPECT_EQ(read.getStartOffsetSecs(), 120u);
    EXPECT_EQ(read.getFirstSeekDone(), 1u);
    EXPECT_EQ(read.getNextStartTime(), "2026-03-10 08:10:00");
    EXPECT_TRUE(readToTheEnd);
}
} // namespace
