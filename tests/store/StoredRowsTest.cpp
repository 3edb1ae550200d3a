// The plans table read on a reader thread, in batches, beside the checks.
#include "RunStateTestData.h"
#include "support/LogCapture.h"

#include "framework/DatabaseFunctionOperation.h"
#include "store/SchedulerDataStoreManager.h"
#include "triggers/TriggerObject.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
// A table of many read-ahead batches loads whole, and each refused row among
// them is skipped with its own line.
TEST(StoredRows, ATableOfManyBatchesLoadsWithTheRefusedRowsAmongThem) {
    QTemporaryDir dir;
    const QString path = dir.filePath("alldb.db");
    {
        DatabaseFunctionOperation database;
        QString error;
        ASSERT_TRUE(database.OpenForWriting(path, error)) << error.toStdString();
    }
    RunStateTestData::Execute(
        path,
        {"WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 2999) "
         "INSERT INTO triggers (plan_uuid, trigger_type, start_time, week_days) "
         "SELECT 'bulk-' || i, CASE i % 7 WHEN 3 THEN 3 ELSE 2 END, '2026-03-10 08:00:00', '1,8' FROM n"});
    LogCapture log;
    SchedulerDataStoreManager store;
    ASSERT_TRUE(store.Init(path));
    store.AwaitFingerprints();
    const int refused = 429; // every seventh row from the fourth on: a weekly plan on day 8
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObjectHash()->size(), 3000 - refused);
    EXPECT_EQ(log.CountContaining("Skipped the stored plan [bulk-"), refused);
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject("bulk-3"), nullptr);
    TriggerObject* last = SchedulerDataStoreManager::GetTriggerObject("bulk-2998");
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->getObjectTriggerAttribute().getStartTime(), "2026-03-10 08:00:00");
    store.UnInit();
}
} // namespace
