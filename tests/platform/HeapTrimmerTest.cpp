// The heap is given back once per burst of work, and only once the burst has
// been quiet for a while: never in the middle of a start-up's reports.
#include "platform/HeapTrimmer.h"

#include <QTest>

#include <gtest/gtest.h>

namespace {
// A trimmer on a clock the test moves, counting its trims.
struct Trimmer {
    qint64 now = 0;
    int trims = 0;
    HeapTrimmer trimmer{[this] { ++trims; }, [this] { return now; }};
};

TEST(HeapTrimmer, TrimsOnceWhenABurstHasBeenQuiet) {
    Trimmer t;
    // Items keep coming for longer than the quiet time: no trim meanwhile.
    for (int round = 0; round < 6; ++round) {
        t.trimmer.Note(HeapTrimmer::kBurstItems / 2);
        t.now += HeapTrimmer::kQuietMSecs / 4;
        t.trimmer.onQuiet();
        ASSERT_EQ(t.trims, 0) << "round " << round;
    }
    t.now += HeapTrimmer::kQuietMSecs - HeapTrimmer::kQuietMSecs / 4 - 1;
    t.trimmer.onQuiet();
    EXPECT_EQ(t.trims, 0);
    t.now += 1;
    t.trimmer.onQuiet();
    t.trimmer.onQuiet();
    EXPECT_EQ(t.trims, 1);
}

TEST(HeapTrimmer, ATrickleIsNoBurst) {
    Trimmer t;
    t.trimmer.Note(HeapTrimmer::kBurstItems - 1);
    t.now += HeapTrimmer::kQuietMSecs * 3 / 2;
    t.trimmer.onQuiet();
    EXPECT_EQ(t.trims, 0);
    // The next item completes the burst, which is then trimmed.
    t.trimmer.Note();
    t.now += HeapTrimmer::kQuietMSecs;
    t.trimmer.onQuiet();
    EXPECT_EQ(t.trims, 1);
}

// Its own timer ends a burst on the real clock.
TEST(HeapTrimmer, TheQuietTimerTrims) {
    int trims = 0;
    HeapTrimmer trimmer([&] { ++trims; });
    trimmer.Note(HeapTrimmer::kBurstItems);
    ASSERT_TRUE(QTest::qWaitFor([&] { return trims == 1; }, 10000));
}
} // namespace
