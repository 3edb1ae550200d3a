// After a late run the next start is the first of the plan's own series after
// now; a poll counts its minute on the instant.
#include "support/TriggerBuilder.h"

#include "triggers/CalendarSchedule.h"
#include "triggers/LocalTime.h"

#include <QTimeZone>

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
    const ScheduleResult result = CalendarSchedule::ComputeLate(attribute, c.progress, At(c.now), At(c.now));
    if (QString(c.next) == "finished") {
        EXPECT_EQ(result.state, FireState::kFinished);
        return;
    }
    ASSERT_EQ(result.state, FireState::kScheduled);
    EXPECT_EQ(LocalTime::Format(result.next), c.next);
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

// In polling mode an on-time follow-up counts from the start that ran.
TEST(PolledFollowUp, KeepsTheSecondsOfTheStartThatRan) {
    const TriggerAttribute attribute = MakeAttribute({2, "2026-03-01 09:00:30", "", 90});
    const ScheduleResult result = CalendarSchedule::ComputePolled(
        attribute, {1, 0, 0}, At("2026-03-10 10:00:30"), At("2026-03-10 10:00:00"), true);
    EXPECT_EQ(LocalTime::Format(result.next), "2026-03-10 10:02:00");
}

// The second 02:30 of Berlin's fall-back night stays the second.
TEST(MinuteStart, StaysInTheOccurrenceOfARepeatedHour) {
    const QTimeZone berlin("Europe/Berlin");
    const QDateTime secondOccurrence = QDateTime::fromMSecsSinceEpoch(
        QDateTime(QDate(2026, 10, 25), QTime(1, 30, 45), Qt::UTC).toMSecsSinceEpoch(), berlin);
    ASSERT_EQ(secondOccurrence.offsetFromUtc(), 3600);
    const QDateTime start = CalendarSchedule::MinuteStart(secondOccurrence);
    EXPECT_EQ(start.offsetFromUtc(), 3600);
    EXPECT_EQ(start.time(), QTime(2, 30));
    EXPECT_EQ(secondOccurrence.toMSecsSinceEpoch() - start.toMSecsSinceEpoch(), 45000);
}
} // namespace
