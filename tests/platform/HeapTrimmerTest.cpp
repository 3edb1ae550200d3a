// The heap is given back once per burst of work, and only once the burst has
// been quiet for a while: never in the middle of a start-up's reports.
#include "platform/HeapTrimmer.h"

#include <QElapsedTimer>
#include <QTest>

#include <gtest/gtest.h>

namespace {
TEST(HeapTrimmer, TrimsOnceWhenABurstHasBeenQuiet) {
    const int before = HeapTrimmer::Trims();
    QElapsedTimer sinceLastItem;
    // Items keep coming for longer than the quiet time: no trim meanwhile.
    for (int round = 0; round < 6; ++round) {
        HeapTrimmer::Note(HeapTrimmer::kBurstItems / 2);
        sinceLastItem.start();
        QTest::qWait(HeapTrimmer::kQuietMSecs / 4);
        ASSERT_EQ(HeapTrimmer::Trims(), before) << "round " << round;
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return HeapTrimmer::Trims() > before; }, 10000));
    EXPECT_GE(sinceLastItem.elapsed(), HeapTrimmer::kQuietMSecs);
    EXPECT_EQ(HeapTrimmer::Trims(), before + 1);
}

TEST(HeapTrimmer, ATrickleIsNoBurst) {
    const int before = HeapTrimmer::Trims();
    HeapTrimmer::Note(HeapTrimmer::kBurstItems - 1);
    QTest::qWait(HeapTrimmer::kQuietMSecs * 3 / 2);
    EXPECT_EQ(HeapTrimmer::Trims(), before);
    // The next item completes the burst, which is then trimmed.
    HeapTrimmer::Note();
    ASSERT_TRUE(QTest::qWaitFor([&] { return HeapTrimmer::Trims() > before; }, 10000));
}
} // namespace
