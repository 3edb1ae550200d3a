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
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

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

TEST_F(DataStore, MissingFileGivesAnEmptyRegistry) {
    ASSERT_TRUE(store.Init(Path("absent.db")));
    EXPECT_TRUE(SchedulerDataStoreManager::GetTriggerObjectHash()->isEmpty());
    EXPECT_FALSE(QFile::exists(Path("absent.db")));
}

TEST_F(DataStore, EmptyPathIsRefused) {
    EXPECT_FALSE(store.Init(""));
    EXPECT_TRUE(log.Has(log4cpp::Priority::DEBUG, "dbfile.isEmpty"));
}

struct BrokenFile {
    const char* name;
    QByteArray content;
    const char* failedCheck;
};

// Files that are not a trigger database are refused, and left byte for byte
// as they were.
TEST_F(DataStore, RefusesBrokenFilesWithoutTouchingThem) {
    const BrokenFile cases[] = {
        {"text.db", "this is not a database\n", "m_databaseOperation.Init"},
        {"random.db", QByteArray(4096, '\x5a'), "m_databaseOperation.Init"},
    };
    for (const BrokenFile& c : cases) {
        SCOPED_TRACE(c.name);
        QFile file(Path(c.name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(c.content);
        file.close();
        const QByteArray before = Digest(Path(c.name));
        log.Clear();
        EXPECT_FALSE(store.Init(Path(c.name)));
        EXPECT_TRUE(log.Has(log4cpp::Priority::DEBUG, c.failedCheck));
        store.UnInit();
        EXPECT_EQ(Digest(Path(c.name)), before);
    }
}

TEST_F(DataStore, RefusesADatabaseWithoutTheTriggerTable) {
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "other");
        db.setDatabaseName(Path("other.db"));
        ASSERT_TRUE(db.open());
        QSqlQuery(db).exec("CREATE TABLE unrelated (x INTEGER)");
        db.close();
    }
    QSqlDatabase::removeDatabase("other");
    const QByteArray before = Digest(Path("other.db"));
    EXPECT_FALSE(store.Init(Path("other.db")));
    EXPECT_TRUE(log.Has(log4cpp::Priority::DEBUG, "LoadDatabaseTriggerObjects"));
    EXPECT_EQ(Digest(Path("other.db")), before);
}

TEST_F(DataStore, SkipsRowsThatCannotBeRead) {
    StoreDatabase(Path("alldb.db"), 2);
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "edit");
        db.setDatabaseName(Path("alldb.db"));
        ASSERT_TRUE(db.open());
        QSqlQuery(db).exec("UPDATE triggers SET interval_secs = 'often' WHERE plan_uuid = 'plan-0'");
        db.close();
    }
    QSqlDatabase::removeDatabase("edit");
    ASSERT_TRUE(store.Init(Path("alldb.db")));
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject("plan-0"), nullptr);
    EXPECT_NE(SchedulerDataStoreManager::GetTriggerObject("plan-1"), nullptr);
    EXPECT_EQ(log.CountContaining("Skipped a stored trigger that cannot be read (plan [plan-0])"), 1);
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
    EXPECT_FALSE(SchedulerDataStoreManager::DeleteTriggerObject("unknown", &result));
    EXPECT_EQ(result.getUintResult(), 1u);
    EXPECT_TRUE(SchedulerDataStoreManager::DeleteTriggerObject("p", &result));
    EXPECT_EQ(result.getUintResult(), 0u);
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject("p"), nullptr);
    EXPECT_FALSE(SchedulerDataStoreManager::DeleteTriggerObject("p", nullptr));
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

    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    object.Write(out);
    TriggerObject read;
    QDataStream in(bytes);
    read.Read(in);
    EXPECT_EQ(read.getPlanUuid(), "p");
    EXPECT_EQ(read.getPlanName(), "name");
    EXPECT_TRUE(read.getTriggerAttribute() == object.getTriggerAttribute());
    EXPECT_EQ(read.getRepeatCount(), 2u);
    EXPECT_EQ(read.getStartOffsetSecs(), 120u);
    EXPECT_EQ(read.getFirstSeekDone(), 1u);
    EXPECT_EQ(read.getNextStartTime(), "2026-03-10 08:10:00");
    EXPECT_TRUE(in.atEnd());
}
} // namespace
