// Start-time computation of the four calendar trigger types, one row per case.
// The binary runs under UTC and under Europe/Berlin; rows keep clear of the
// daylight-saving changes so that both give the same wall-clock times.
#include "support/ClockShift.h"
#include "support/TriggerBuilder.h"

#include "triggers/StartTimeSeries.h"

#include <gtest/gtest.h>

namespace {
struct Row {
    const char* name;
    TriggerDefinition definition;
    const char* now;
    bool poll;
    const char* expected; // entries joined by '|'
};

void PrintTo(const Row& row, std::ostream* os) {
    *os << row.name;
}

const Row kRows[] = {
    // Once.
    {"once_before_start",
     {1, "2026-03-10 08:00:00"},
     "2026-03-10 07:00:00",
     false,
     "2026-03-10 08:00:00|finished"},
    {"once_within_grace",
     {1, "2026-03-10 08:00:00"},
     "2026-03-10 08:02:00",
     false,
     "2026-03-10 08:02:01|finished"},
    {"once_grace_over", {1, "2026-03-10 08:00:00"}, "2026-03-10 08:03:00", false, "finished"},
    {"once_at_start",
     {1, "2026-03-10 08:00:00"},
     "2026-03-10 08:00:00",
     false,
     "2026-03-10 08:00:01|finished"},
    {"once_start_after_end",
     {1, "2026-03-10 08:00:00", "2026-03-09 00:00:00"},
     "2026-03-10 07:00:00",
     false,
     "finished"},
    {"once_start_equal_end",
     {1, "2026-03-10 08:00:00", "2026-03-10 08:00:00"},
     "2026-03-10 07:00:00",
     false,
     "2026-03-10 08:00:00|finished"},
    // Daily.
    {"daily_before_time",
     {2, "2026-03-01 09:30:00"},
     "2026-03-10 08:00:00",
     false,
     "2026-03-10 09:30:00|2026-03-11 09:30:00|2026-03-12 09:30:00"},
    {"daily_after_time",
     {2, "2026-03-01 09:30:00"},
     "2026-03-10 10:00:00",
     false,
     "2026-03-11 09:30:00|2026-03-12 09:30:00"},
    {"daily_at_time",
     {2, "2026-03-01 09:30:00"},
     "2026-03-10 09:30:00.000",
     false,
     "2026-03-10 09:30:01|2026-03-11 09:30:00"},
    {"daily_one_ms_before",
     {2, "2026-03-01 09:30:00"},
     "2026-03-10 09:29:59.999",
     false,
     "2026-03-10 09:30:00|2026-03-11 09:30:00"},
    {"daily_future_start",
     {2, "2026-04-01 06:00:00"},
     "2026-03-10 10:00:00",
     false,
     "2026-04-01 06:00:00|2026-04-02 06:00:00"},
    {"daily_hourly",
     {2, "2026-03-01 09:30:00", "", 3600},
     "2026-03-10 08:00:00",
     false,
     "2026-03-10 09:30:00|2026-03-10 10:30:00|2026-03-10 11:30:00"},
    {"daily_interval_after_time",
     {2, "2026-03-01 09:30:00", "", 600},
     "2026-03-10 10:00:00",
     false,
     "2026-03-10 10:00:01|2026-03-10 10:10:01"},
    {"daily_interval_over_midnight",
     {2, "2026-03-01 23:00:00", "", 3600},
     "2026-03-10 22:30:00",
     false,
     "2026-03-10 23:00:00|2026-03-11 00:00:00|2026-03-11 01:00:00"},
    {"daily_end_reached",
     {2, "2026-03-01 09:30:00", "2026-03-11 09:30:00"},
     "2026-03-10 10:00:00",
     false,
     "2026-03-11 09:30:00|finished"},
    {"daily_end_passed",
     {2, "2026-03-01 09:30:00", "2026-03-09 00:00:00"},
     "2026-03-10 10:00:00",
     false,
     "finished"},
    {"daily_zero_end_is_none",
     {2, "2026-03-01 09:30:00", "0000-00-00 00:00:00"},
     "2026-03-10 10:00:00",
     false,
     "2026-03-11 09:30:00|2026-03-12 09:30:00"},
    {"duration_shorter_than_interval",
     {2, "2026-03-01 09:30:00", "", 900, 600},
     "2026-03-10 08:00:00",
     false,
     "finished"},
    // Weekly (2026-03-10 is a Tuesday).
    {"weekly_next_listed_day",
     {3, "2026-01-05 20:00:00", "", 0, 0, "1,3,5"},
     "2026-03-12 10:00:00",
     false,
     "2026-03-13 20:00:00|2026-03-16 20:00:00|2026-03-18 20:00:00"},
    {"weekly_start_not_listed",
     {3, "2026-03-12 20:00:00", "", 0, 0, "1,3,5"},
     "2026-03-10 08:00:00",
     false,
     "2026-03-13 20:00:00|2026-03-16 20:00:00"},
    {"weekly_single_day_wraps",
     {3, "2026-03-04 09:00:00", "", 0, 0, "3"},
     "2026-03-11 10:00:00",
     false,
     "2026-03-18 09:00:00|2026-03-25 09:00:00"},
    {"weekly_unsorted_list",
     {3, "2026-01-05 20:00:00", "", 0, 0, "5,1,3"},
     "2026-03-13 21:00:00",
     false,
     "2026-03-16 20:00:00|2026-03-18 20:00:00|2026-03-20 20:00:00"},
    {"weekly_span",
     {3, "2026-01-05 20:00:00", "", 600, 1800, "1,3,5"},
     "2026-03-12 10:00:00",
     false,
     "2026-03-13 20:00:00|2026-03-13 20:10:00|2026-03-13 20:20:00|2026-03-13 20:30:00|2026-03-16 20:00:00"},
    {"weekly_repeat_lands_on_midnight",
     {3, "2026-03-10 23:00:00", "", 1800},
     "2026-03-10 22:00:00",
     false,
     "2026-03-10 23:00:00|2026-03-10 23:30:00|2026-03-11 00:00:00|2026-03-11 00:30:00"},
    {"weekly_repeat_past_midnight",
     {3, "2026-03-10 23:00:00", "", 2400, 0, "2"},
     "2026-03-10 22:00:00",
     false,
     "2026-03-10 23:00:00|2026-03-10 23:40:00|2026-03-17 23:00:00"},
    {"weekly_end_before_next",
     {3, "2026-01-05 20:00:00", "2026-03-12 12:00:00", 0, 0, "1,3,5"},
     "2026-03-12 10:00:00",
     false,
     "finished"},
    {"weekly_day_out_of_range",
     {3, "2026-01-05 20:00:00", "", 0, 0, "9"},
     "2026-03-12 10:00:00",
     false,
     "error"},
    // Monthly.
    {"monthly_day_15",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "", "15"},
     "2026-03-10 00:00:00",
     false,
     "2026-03-15 10:00:00|2026-04-15 10:00:00|2026-05-15 10:00:00"},
    {"monthly_listed_months",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "6,12", "1"},
     "2026-03-10 00:00:00",
     false,
     "2026-06-01 10:00:00|2026-12-01 10:00:00|2027-06-01 10:00:00"},
    {"monthly_last_day",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "", "", 1},
     "2026-02-10 00:00:00",
     false,
     "2026-02-28 10:00:00|2026-03-31 10:00:00|2026-04-30 10:00:00"},
    {"monthly_last_day_and_15",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "", "15", 1},
     "2026-02-10 00:00:00",
     false,
     "2026-02-15 10:00:00|2026-02-28 10:00:00|2026-03-15 10:00:00|2026-03-31 10:00:00"},
    {"monthly_day_last_flag_2_ignored",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "", "15", 2},
     "2026-03-10 00:00:00",
     false,
     "2026-03-15 10:00:00|2026-04-15 10:00:00"},
    {"monthly_day_31_skips_short_months",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "", "31"},
     "2026-01-01 00:00:00",
     false,
     "2026-01-31 10:00:00|2026-03-31 10:00:00|2026-05-31 10:00:00|2026-07-31 10:00:00|2026-08-31 10:00:00"},
    {"monthly_day_29_leap_years",
     {4, "2027-01-01 10:00:00", "", 0, 0, "", "2", "29"},
     "2027-01-01 00:00:00",
     false,
     "2028-02-29 10:00:00|2032-02-29 10:00:00"},
    {"monthly_days_5_31_after_april_5",
     {4, "2026-04-05 10:00:00", "", 0, 0, "", "", "5,31"},
     "2026-04-05 11:00:00",
     false,
     "2026-05-05 10:00:00|2026-05-31 10:00:00|2026-06-05 10:00:00"},
    {"monthly_empty_days_year_end",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "1", ""},
     "2026-12-31 11:00:00",
     false,
     "2027-01-01 10:00:00|2027-01-02 10:00:00"},
    {"monthly_never_matches",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "2", "30"},
     "2026-01-01 00:00:00",
     false,
     "error"},
    {"monthly_month_out_of_range",
     {4, "2026-01-01 10:00:00", "", 0, 0, "", "13", "1"},
     "2026-01-01 00:00:00",
     false,
     "error"},
    {"monthly_span_then_next_day",
     {4, "2026-01-01 10:00:00", "", 3600, 3600, "", "", "10,20"},
     "2026-03-10 09:00:00",
     false,
     "2026-03-10 10:00:00|2026-03-10 11:00:00|2026-03-20 10:00:00"},
    // Other types.
    {"event_type_has_no_schedule", {257, "2026-01-01 10:00:00"}, "2026-01-01 00:00:00", false, "error"},
    // Polling mode: a first computation starts from the beginning of a minute,
    // a follow-up from the start that ran, whose seconds it keeps.
    {"poll_daily_90s",
     {2, "2026-03-01 09:30:00", "", 90},
     "2026-03-10 09:30:20",
     true,
     "2026-03-10 09:30:01|2026-03-10 09:31:31|2026-03-10 09:33:01|2026-03-10 09:34:31"},
    {"poll_weekly_span",
     {3, "2026-01-05 20:00:00", "", 600, 1200, "1,3,5"},
     "2026-03-13 20:00:40",
     true,
     "2026-03-13 20:00:01|2026-03-13 20:10:01|2026-03-13 20:20:01|2026-03-16 20:00:00"},
    // Polling runs a plan at most once a minute, and one run counts one
    // repetition of the span.
    {"poll_short_interval_once_a_minute",
     {2, "2026-03-01 08:30:00", "", 20},
     "2026-03-10 08:30:00",
     true,
     "2026-03-10 08:30:01|2026-03-10 08:31:20|2026-03-10 08:32:20"},
    {"poll_short_interval_counts_one_repetition_per_run",
     {3, "2026-01-05 20:00:00", "", 20, 100, "1,3,5"},
     "2026-03-13 20:00:00",
     true,
     "2026-03-13 20:00:01|2026-03-13 20:01:20|2026-03-13 20:02:20|2026-03-13 20:03:20|2026-03-13 "
     "20:04:20|2026-03-13 20:05:20|2026-03-16 20:00:00"},
};

class CalendarSchedule : public ::testing::TestWithParam<Row> {};

TEST_P(CalendarSchedule, ComputesStartTimes) {
    const Row& row = GetParam();
    TriggerObject object = MakeTrigger("plan", row.definition);
    ClockShift clock(At(row.now));
    const QString expected = row.expected;
    const int count = expected.split('|').size();
    const QStringList got =
        StartTimeSeries::Compute(object, At(row.now), static_cast<quint64>(count), row.poll);
    EXPECT_EQ(got.join('|').toStdString(), expected.toStdString());
}

INSTANTIATE_TEST_SUITE_P(Table, CalendarSchedule, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) {
                             return std::string(info.param.name);
                         });

struct EmptyStartRow {
    const char* name;
    TriggerDefinition definition;
    const char* now;
    const char* storedStart;
    const char* expected;
};

void PrintTo(const EmptyStartRow& row, std::ostream* os) {
    *os << row.name;
}

const EmptyStartRow kEmptyStartRows[] = {
    {"once", {1}, "2026-03-10 08:15:30.250", "2026-03-10 08:15:00", "2026-03-10 08:15:31|finished"},
    {"daily_adds_interval",
     {2, "", "", 600},
     "2026-03-10 08:15:30",
     "2026-03-10 08:25:00",
     "2026-03-10 08:25:00|2026-03-10 08:35:00"},
    {"weekly_keeps_minute",
     {3, "", "", 0, 0, "2"},
     "2026-03-10 08:15:30",
     "2026-03-10 08:15:00",
     "2026-03-10 08:15:31|2026-03-17 08:15:00"},
};

class EmptyStartTime : public ::testing::TestWithParam<EmptyStartRow> {};

// An empty start time takes the current minute from the process clock.
TEST_P(EmptyStartTime, TakesTheCurrentMinute) {
    const EmptyStartRow& row = GetParam();
    TriggerObject object = MakeTrigger("plan", row.definition);
    ClockShift clock(At(row.now));
    const QStringList got = StartTimeSeries::Compute(object, At(row.now), 2, false);
    EXPECT_EQ(object.getObjectTriggerAttribute().getStartTime().toStdString(), row.storedStart);
    EXPECT_EQ(got.join('|').toStdString(), row.expected);
}

INSTANTIATE_TEST_SUITE_P(Table, EmptyStartTime, ::testing::ValuesIn(kEmptyStartRows),
                         [](const ::testing::TestParamInfo<EmptyStartRow>& info) {
                             return std::string(info.param.name);
                         });

struct ProgressRow {
    const char* name;
    TriggerDefinition definition;
    const char* now;
    quint64 startOffset;
};

void PrintTo(const ProgressRow& row, std::ostream* os) {
    *os << row.name;
}

const ProgressRow kProgressRows[] = {
    {"before_start_time", {1, "2026-03-10 08:00:00"}, "2026-03-10 07:00:00", 0},
    {"two_minutes_late", {1, "2026-03-10 08:00:00"}, "2026-03-10 08:02:00", 120},
    {"after_daily_time", {2, "2026-03-01 09:30:00"}, "2026-03-10 10:00:00", 1800},
    {"ended_still_counts_as_seek",
     {2, "2026-03-01 09:30:00", "2026-03-01 10:00:00"},
     "2026-03-10 10:00:00",
     0},
};

class FirstComputation : public ::testing::TestWithParam<ProgressRow> {};

TEST_P(FirstComputation, RecordsProgress) {
    const ProgressRow& row = GetParam();
    TriggerObject object = MakeTrigger("plan", row.definition);
    StartTimeSeries::Compute(object, At(row.now), 1, false);
    EXPECT_EQ(object.getStartOffsetSecs(), row.startOffset);
    EXPECT_EQ(object.getRepeatCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, FirstComputation, ::testing::ValuesIn(kProgressRows),
                         [](const ::testing::TestParamInfo<ProgressRow>& info) {
                             return std::string(info.param.name);
                         });

TEST(FirstComputationFlag, IsSetEvenWhenTheEndFlagEndsTheTrigger) {
    TriggerObject object = MakeTrigger("plan", {2, "2026-03-01 09:30:00"});
    object.getObjectTriggerAttribute().setTriggerEndFlag(1);
    EXPECT_EQ(StartTimeSeries::Compute(object, At("2026-03-10 08:00:00"), 1, false), QStringList{"finished"});
    EXPECT_EQ(object.getFirstSeekDone(), 1u);
}

TEST(StoredNextStartTime, HoldsTheLastComputedStart) {
    TriggerObject object = MakeTrigger("plan", {2, "2026-03-01 09:30:00"});
    StartTimeSeries::Compute(object, At("2026-03-10 08:00:00"), 2, false);
    EXPECT_EQ(object.getNextStartTime(), "2026-03-11 09:30:00");
}

bool InBerlin() {
    return qgetenv("TZ") == "Europe/Berlin";
}

// A start time of day that the spring-forward night skips runs one hour later
// that day and at its own time again the day after; the trigger never ends.
TEST(DaylightSaving, StartInTheSkippedHourMovesOnByTheGap) {
    if (!InBerlin()) {
        GTEST_SKIP() << "needs a zone with daylight saving";
    }
    TriggerObject daily = MakeTrigger("plan", {2, "2026-03-01 02:30:00"});
    EXPECT_EQ(StartTimeSeries::Compute(daily, At("2026-03-28 12:00:00"), 3, false).join('|'),
              "2026-03-29 03:30:00|2026-03-30 02:30:00|2026-03-31 02:30:00");
    TriggerObject once = MakeTrigger("plan", {1, "2026-03-29 02:30:00"});
    EXPECT_EQ(StartTimeSeries::Compute(once, At("2026-03-29 01:00:00"), 2, false).join('|'),
              "2026-03-29 03:30:00|finished");
}

TEST(DaylightSaving, RepetitionsAcrossFallBackAreRealHours) {
    if (!InBerlin()) {
        GTEST_SKIP() << "needs a zone with daylight saving";
    }
    TriggerObject object = MakeTrigger("plan", {2, "2026-10-01 01:00:00", "", 3600});
    const QStringList got = StartTimeSeries::Compute(object, At("2026-10-25 00:30:00"), 4, false);
    ASSERT_EQ(got.size(), 4);
    // 02:00 comes twice that night; the third start is the second 02:00.
    EXPECT_EQ(got.at(0), "2026-10-25 01:00:00");
    EXPECT_EQ(got.at(1), "2026-10-25 02:00:00");
    EXPECT_EQ(got.at(2), "2026-10-25 02:00:00");
    EXPECT_EQ(got.at(3), "2026-10-25 03:00:00");
}
} // namespace
