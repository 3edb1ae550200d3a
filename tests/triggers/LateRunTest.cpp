// After a late run the next start is the first of the plan's own series after
// now; a poll counts its minute on the instant.
#include "support/TriggerBuilder.h"
#include "support/ZoneScope.h"

#include "triggers/CalendarSchedule.h"
#include "triggers/LocalTime.h"

#include <gtest/gtest.h>

namespace {
struct LateCase {
    const char* name;
    TriggerDefinition definition;
    ScheduleProgress progress;
    const char* now;
    const char* next; // or "finished"
    quint64 repeatCount = 0;
};

class LateRun : public ::testing::TestWithParam<LateCase> {};

TEST_P(LateRun, GoesOnWithThePlansOwnSeries) {
    const LateCase& c = GetParam();
    const TriggerAttribute attribute = MakeAttribute(c.definition);
    const qint64 now = At(c.now).toMSecsSinceEpoch();
    const ScheduleResult result =
        CalendarSchedule::ComputeLate(CalendarRule(attribute), c.progress, now, now);
    if (QString(c.next) == "finished") {
        EXPECT_EQ(result.state, FireState::kFinished);
        return;
    }
    ASSERT_EQ(result.state, FireState::kScheduled);
    EXPECT_EQ(LocalTime::Format(result.Next()), c.next);
    EXPECT_EQ(result.progress.repeatCount, c.repeatCount);
}

// 2026-03-11 is a Wednesday.
const ScheduleProgress kRunning{1, 0, 0};
INSTANTIATE_TEST_SUITE_P(
    Cases, LateRun,
    ::testing::Values(
        LateCase{"dailyKeepsTheSecondsOfItsStart",
                 {2, "2026-03-10 08:16:30", "", 60},
                 kRunning,
                 "2026-03-10 10:20:00",
                 "2026-03-10 10:20:30"},
        LateCase{"hourlyFromAStartDaysAgo",
                 {2, "2026-03-01 09:00:00", "", 3600},
                 kRunning,
                 "2026-03-10 10:20:00",
                 "2026-03-10 11:00:00"},
        LateCase{"weeklyWithinTheSpan",
                 {3, "2026-01-05 20:00:00", "", 600, 1800},
                 {1, 7, 300},
                 "2026-03-11 20:15:00",
                 "2026-03-11 20:20:00",
                 2},
        LateCase{"weeklySpanOver",
                 {3, "2026-01-05 20:00:00", "", 600, 1800, "1,3,5"},
                 {1, 3, 0},
                 "2026-03-11 20:45:00",
                 "2026-03-13 20:00:00"},
        LateCase{"weeklyAllowedDayBeforeItsStart",
                 {3, "2026-01-05 20:00:00", "", 600, 1800, "1,3,5"},
                 {1, 2, 0},
                 "2026-03-11 10:00:00",
                 "2026-03-11 20:00:00"},
        LateCase{"weeklyDayNotAllowed",
                 {3, "2026-01-05 20:00:00", "", 600, 1800, "1,3,5"},
                 {1, 2, 0},
                 "2026-03-12 20:05:00",
                 "2026-03-13 20:00:00"},
        LateCase{"withoutIntervalTheNextDay",
                 {2, "2026-03-01 09:30:00"},
                 kRunning,
                 "2026-03-10 10:00:00",
                 "2026-03-11 09:30:00"},
        LateCase{"seriesBeyondTheEnd",
                 {2, "2026-03-01 09:00:00", "2026-03-10 10:30:00", 3600},
                 kRunning,
                 "2026-03-10 10:20:00",
                 "finished"},
        LateCase{"onceIsOver", {1, "2026-03-10 09:00:00"}, kRunning, "2026-03-10 10:20:00", "finished"},
        LateCase{"aFirstComputationIsTheOrdinaryOne",
                 {2, "2026-03-01 09:00:00", "", 3600},
                 {},
                 "2026-03-10 10:20:00",
                 "2026-03-10 10:20:01"}),
    [](const ::testing::TestParamInfo<LateCase>& info) { return std::string(info.param.name); });

// The second 02:30 of Berlin's fall-back night stays the second.
TEST(MinuteStart, StaysInTheOccurrenceOfARepeatedHour) {
    const ZoneScope zone("Europe/Berlin");
    const qint64 secondOccurrence =
        QDateTime(QDate(2026, 10, 25), QTime(1, 30, 45), Qt::UTC).toMSecsSinceEpoch();
    EXPECT_EQ(secondOccurrence - CalendarSchedule::MinuteStart(secondOccurrence), 45000);
}
} // namespace
