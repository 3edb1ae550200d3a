// Holding the run state's batch: nothing is written while a hold lasts.
#include "RunStateTestData.h"

#include "store/RunStateBatchHold.h"
#include "store/RunStateStore.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <optional>

namespace {
using namespace RunStateTestData;

class HeldBatch : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(store.Open(path, LiveAmong(Plans(2)))); }

    QTemporaryDir dir;
    const QString path = dir.filePath("state.db");
    RunStateStore store;
};

// A store nobody holds, recorded into right after the held one, shows when the
// held batch's time has come: its own batch is taken then. Twice over, the
// held batch stays.
TEST_F(HeldBatch, WaitsForItsRelease) {
    RunStateStore pace;
    ASSERT_TRUE(pace.Open(dir.filePath("pace.db"), LiveAmong(Plans(2))));
    {
        const RunStateBatchHold hold(&store);
        for (const char* plan : {"plan-0", "plan-1"}) {
            store.RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
            pace.RecordSchedule(plan, 2, "2026-03-11 08:00:00", 0);
            EXPECT_TRUE(WaitWithoutEvents([&] { return pace.UnwrittenChanges() == 0; }));
        }
        EXPECT_TRUE(Rows(path).isEmpty());
        EXPECT_EQ(store.UnwrittenChanges(), 2u);
    }
    EXPECT_TRUE(WaitWithoutEvents([&] { return Rows(path).size() == 2; }));
}

TEST_F(HeldBatch, HoldsNestAndTheLastReleaseLetsItGo) {
    std::optional<RunStateBatchHold> outer(std::in_place, &store);
    {
        const RunStateBatchHold inner(&store);
        store.RecordSchedule("plan-0", 2, "2026-03-11 08:00:00", 0);
    }
    EXPECT_TRUE(store.BatchHeld());
    outer.reset();
    EXPECT_FALSE(store.BatchHeld());
    EXPECT_TRUE(WaitWithoutEvents([&] { return Rows(path).size() == 1; }));
}
} // namespace
