// The operation type registry and its built-in test backup operation.
#include "operations/CTestBackupOperation.h"
#include "operations/CTestBackupOperationBuilder.h"
#include "operations/RegistrarTypeManager.h"

#include <QIODevice>
#include <QTest>

#include <gtest/gtest.h>

namespace {
class OtherBuilder : public IRegistrarBuilder {
public:
    IQorRegistrar* Create() override { return nullptr; }
    void Destroy(IQorRegistrar*) override {}
    virtual ~OtherBuilder() = default;
};

TEST(OperationRegistry, HoldsTheTestBackupBeforeMain) {
    RegistrarTypeManager* registry = RegistrarTypeManager::instance();
    IQorRegistrar* object = registry->CreateRegistrar("BackupOperation");
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->getTypeName(), "BackupOperation");
    registry->DestroyRegistrar(object);
    EXPECT_EQ(CTestBackupOperationBuilder::instance()->getTypeName(), "BackupOperation");
}

TEST(OperationRegistry, KeepsTheFirstBuilderOfAName) {
    RegistrarTypeManager* registry = RegistrarTypeManager::instance();
    OtherBuilder other;
    EXPECT_EQ(registry->Register("BackupOperation", &other), 0);
    EXPECT_EQ(registry->Register("Anything", nullptr), 0);
    IQorRegistrar* object = registry->CreateRegistrar("BackupOperation");
    EXPECT_NE(object, nullptr);
    registry->DestroyRegistrar(object);
    EXPECT_EQ(registry->CreateRegistrar(""), nullptr);
    EXPECT_EQ(registry->CreateRegistrar("NeverRegistered"), nullptr);
    registry->DestroyRegistrar(nullptr);
}

TEST(OperationRegistry, RestoresAnOperationFromItsStream) {
    CTestBackupOperation original("nightly", 3);
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(16);
    original.WriteToStream(out);
    IQorRegistrar* restored = RegistrarTypeManager::instance()->CreateRegistrar("BackupOperation", bytes);
    ASSERT_NE(restored, nullptr);
    auto* operation = static_cast<CTestBackupOperation*>(restored);
    EXPECT_EQ(operation->name(), "nightly");
    EXPECT_EQ(operation->durationMinutes(), 3);
    RegistrarTypeManager::instance()->DestroyRegistrar(restored);
}

TEST(TestBackupOperation, NamesCountEveryOperationEverBuilt) {
    CTestBackupOperation a;
    CTestBackupOperation b;
    CTestBackupOperation c("c", 0);
    EXPECT_EQ(a.getName(), c.getName());
    EXPECT_TRUE(a.getName().startsWith("TestBackupOperation"));
    const quint64 count = a.getName().mid(QString("TestBackupOperation").size()).toULongLong();
    EXPECT_GE(count, 3u);
}

TEST(TestBackupOperation, ProgressAndStop) {
    CTestBackupOperation idle;
    EXPECT_EQ(idle.getCurrentProgress(), 0u);
    EXPECT_EQ(idle.getTotalProgress(), 100u);
    EXPECT_FALSE(idle.IsRunning());

    CTestBackupOperation running("long", 5);
    ASSERT_TRUE(running.Start());
    // The run has begun once it counts the whole of its duration.
    ASSERT_TRUE(QTest::qWaitFor([&] { return running.getTotalProgress() == 5 * 60000u; }, 10000));
    EXPECT_TRUE(running.IsRunning());
    EXPECT_LE(running.getCurrentProgress(), running.getTotalProgress());
    running.Stop();
    EXPECT_FALSE(running.IsRunning());
    EXPECT_EQ(running.getTotalProgress(), 100u);
    EXPECT_LE(running.getCurrentProgress(), 100u);

    CTestBackupOperation instant("zero", 0);
    ASSERT_TRUE(instant.Start());
    instant.Wait();
    EXPECT_FALSE(instant.IsRunning());
}
} // namespace
