// Start times through daylight-saving changes, in zones whose rules go beyond
// a one-hour change at night: Dublin counts winter as its saving period (a
// negative saving), Lord Howe changes by half an hour, Chatham at 02:45/03:45,
// Santiago at midnight. Each row carries its zone and is computed in both
// firing modes.
#include "support/ZoneSeries.h"

#include "triggers/CalendarSchedule.h"
#include "triggers/WallTime.h"

#include <gtest/gtest.h>

#include <random>

namespace {
struct ZoneRow {
    const char* name;
    const char* zone;
    TriggerDefinition definition;
    const char* now;
    const char* timer; // entries joined by '|'
    const char* poll;  // nullptr: as in timer mode
};

void PrintTo(const ZoneRow& row, std::ostream* os) {
    *os << row.name;
}

const ZoneRow kZoneRows[] = {
    // Dublin's clocks go back at 02:00 IST to 01:00 GMT: 01:00 comes twice.
    {"dublin_hourly_through_the_repeated_hour",
     "Europe/Dublin",
     {2, "2029-10-01 01:00:00", "", 3600},
     "2029-10-28 00:30:00",
     "2029-10-28 01:00:00|2029-10-28 01:00:00|2029-10-28 02:00:00|2029-10-28 03:00:00|2029-10-28 04:00:00",
     nullptr},
    {"dublin_spring_forward_moves_the_start_on",
     "Europe/Dublin",
     {2, "2029-03-01 01:30:00"},
     "2029-03-24 12:00:00",
     "2029-03-25 02:30:00|2029-03-26 01:30:00",
     nullptr},
    // Chatham goes back from 03:45 to 02:45. A repetition counts real seconds;
    // polling starts from the beginning of the minute, so its first start lies
    // one second after the start time and the span's fifth run is at 04:00.
    {"chatham_span_through_the_repeated_hour",
     "Pacific/Chatham",
     {3, "2030-04-07 03:00:00", "", 1800, 7200, "", "", "13,3"},
     "2030-04-07 03:00:01",
     "2030-04-07 03:00:02|2030-04-07 03:30:02|2030-04-07 03:00:02|2030-04-07 03:30:02|2030-04-08 03:00:00",
     "2030-04-07 03:00:01|2030-04-07 03:30:00|2030-04-07 03:00:00|2030-04-07 03:30:00|2030-04-07 "
     "04:00:00|2030-04-08 03:00:00"},
    {"chatham_spring_forward_at_an_odd_minute",
     "Pacific/Chatham",
     {2, "2030-09-01 03:00:00"},
     "2030-09-28 12:00:00",
     "2030-09-29 04:00:00|2030-09-30 03:00:00",
     nullptr},
    // Lord Howe goes back from 02:00 to 01:30: an hour after 01:00 the clock
    // reads 01:30, and the series keeps that half hour.
    {"lord_howe_hourly_keeps_real_hours",
     "Australia/Lord_Howe",
     {2, "2030-04-01 01:00:00", "", 3600},
     "2030-04-07 00:30:00",
     "2030-04-07 01:00:00|2030-04-07 01:30:00|2030-04-07 02:30:00|2030-04-07 03:30:00",
     nullptr},
    {"lord_howe_span_then_next_day_at_its_time",
     "Australia/Lord_Howe",
     {3, "2030-04-01 00:30:00", "", 3600, 7200},
     "2030-04-07 00:00:00",
     "2030-04-07 00:30:00|2030-04-07 01:30:00|2030-04-07 02:00:00|2030-04-08 00:30:00|2030-04-08 "
     "01:30:00|2030-04-08 02:30:00",
     nullptr},
    {"lord_howe_spring_forward_by_half_an_hour",
     "Australia/Lord_Howe",
     {2, "2030-09-01 02:15:00"},
     "2030-10-05 12:00:00",
     "2030-10-06 02:45:00|2030-10-07 02:15:00",
     nullptr},
    // Santiago goes back at midnight to 23:00 the day before, and forward from
    // midnight to 01:00: that day starts at 01:00.
    {"santiago_half_hours_through_the_repeated_hour",
     "America/Santiago",
     {2, "2029-04-01 22:30:00", "", 1800},
     "2029-04-07 22:00:00",
     "2029-04-07 22:30:00|2029-04-07 23:00:00|2029-04-07 23:30:00|2029-04-07 23:00:00|2029-04-07 "
     "23:30:00|2029-04-08 00:00:00",
     nullptr},
    {"santiago_midnight_that_never_comes",
     "America/Santiago",
     {2, "2029-08-01 00:00:00"},
     "2029-09-01 12:00:00",
     "2029-09-02 01:00:00|2029-09-03 00:00:00",
     nullptr},
    {"new_york_span_through_the_repeated_hour",
     "America/New_York",
     {3, "2029-11-01 01:00:00", "", 1800, 3600},
     "2029-11-04 00:00:00",
     "2029-11-04 01:00:00|2029-11-04 01:30:00|2029-11-04 01:00:00|2029-11-05 01:00:00",
     nullptr},
    {"new_york_once_in_the_gap",
     "America/New_York",
     {1, "2029-03-11 02:30:00"},
     "2029-03-11 01:00:00",
     "2029-03-11 03:30:00|finished",
     nullptr},
    {"berlin_daily_in_the_gap",
     "Europe/Berlin",
     {2, "2026-03-01 02:30:00"},
     "2026-03-28 12:00:00",
     "2026-03-29 03:30:00|2026-03-30 02:30:00|2026-03-31 02:30:00",
     nullptr},
    {"berlin_hourly_through_the_repeated_hour",
     "Europe/Berlin",
     {2, "2026-10-01 01:00:00", "", 3600},
     "2026-10-25 00:30:00",
     "2026-10-25 01:00:00|2026-10-25 02:00:00|2026-10-25 02:00:00|2026-10-25 03:00:00",
     nullptr},
    {"berlin_daily_in_the_repeated_hour_runs_once",
     "Europe/Berlin",
     {2, "2026-10-01 02:30:00"},
     "2026-10-24 12:00:00",
     "2026-10-25 02:30:00|2026-10-26 02:30:00",
     nullptr},
    // A first computation compares times of day: at 03:10 the day's 02:30,
    // moved on to 03:30, is not seen, and the first start is the next day's.
    {"berlin_first_computation_between_03_00_and_03_30",
     "Europe/Berlin",
     {2, "2029-03-01 02:30:00"},
     "2029-03-25 03:10:00",
     "2029-03-26 02:30:00|2029-03-27 02:30:00",
     nullptr},
    // The start offset is the wall-clock distance from 01:00 to 04:00, three
    // hours, although two have passed: the span of three hours is over.
    {"berlin_start_offset_in_wall_clock_seconds",
     "Europe/Berlin",
     {3, "2029-03-01 01:00:00", "", 3600, 10800},
     "2029-03-25 04:00:00",
     "2029-03-25 04:00:01|2029-03-26 01:00:00",
     nullptr},
};

class ZoneTable : public ::testing::TestWithParam<ZoneRow> {};

TEST_P(ZoneTable, BothModesGiveTheseStarts) {
    const ZoneRow& row = GetParam();
    for (const bool poll : {false, true}) {
        const QString expected = poll && row.poll != nullptr ? row.poll : row.timer;
        EXPECT_EQ(Series(row.zone, row.definition, row.now, expected.split('|').size(), poll).toStdString(),
                  expected.toStdString())
            << (poll ? "poll" : "timer");
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ZoneTable, ::testing::ValuesIn(kZoneRows),
                         [](const ::testing::TestParamInfo<ZoneRow>& info) {
                             return std::string(info.param.name);
                         });

struct ReadingRow {
    const char* zone;
    const char* reading;
    WallTime::Reading kind;
    int firstOffsetMinutes;  // offset at the instant InstantOf gives
    int secondOffsetMinutes; // at the second reading of a repeated hour
};

const ReadingRow kReadingRows[] = {
    {"Europe/Dublin", "2029-10-28 01:30:00", WallTime::Reading::Twice, 60, 0},
    {"Europe/Dublin", "2029-03-25 01:30:00", WallTime::Reading::Never, 60, 60},
    {"Australia/Lord_Howe", "2030-04-07 01:45:00", WallTime::Reading::Twice, 660, 630},
    {"Australia/Lord_Howe", "2030-04-07 02:00:00", WallTime::Reading::Once, 630, 630},
    {"Pacific/Chatham", "2030-04-07 03:00:00", WallTime::Reading::Twice, 825, 765},
    {"Pacific/Chatham", "2030-09-29 03:00:00", WallTime::Reading::Never, 825, 825},
    {"America/Santiago", "2029-04-07 23:30:00", WallTime::Reading::Twice, -180, -240},
    {"America/Santiago", "2029-09-02 00:00:00", WallTime::Reading::Never, -180, -180},
    {"America/New_York", "2029-11-04 01:59:59", WallTime::Reading::Twice, -240, -300},
    {"America/New_York", "2029-07-04 12:00:00", WallTime::Reading::Once, -240, -240},
};

// How a reading maps onto instants: decided by the offsets in force, also
// where the daylight-saving flag says the opposite (Dublin).
TEST(WallTimeReadings, FollowTheOffsets) {
    for (const ReadingRow& row : kReadingRows) {
        SCOPED_TRACE(std::string(row.zone) + " " + row.reading);
        const ZoneScope scope(row.zone);
        qint64 wall = 0;
        ASSERT_TRUE(LocalTime::ParseWall(row.reading, wall));
        WallTime::Reading kind = WallTime::Reading::Once;
        const qint64 first = WallTime::InstantOf(wall, &kind);
        EXPECT_EQ(kind, row.kind);
        EXPECT_EQ(WallTime::OffsetAt(first), row.firstOffsetMinutes * 60);
        const qint64 second = WallTime::InstantAfter(wall, first);
        EXPECT_EQ(WallTime::OffsetAt(second), row.secondOffsetMinutes * 60);
        if (kind != WallTime::Reading::Never) {
            EXPECT_EQ(WallTime::Of(first), wall);
            EXPECT_EQ(WallTime::Of(second), wall);
        }
        // The error lines' readings to the millisecond, on either side of the change.
        for (const qint64 instant : {first + 7, second + 993}) {
            EXPECT_EQ(LocalTime::FormatPrecise(instant),
                      LocalTime::WithOffset(instant).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz")));
        }
    }
}

// Random definitions around every change of 2029 and 2030.
class RandomTrigger {
public:
    explicit RandomTrigger(unsigned seed) : m_random(seed) {}

    int Uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }

    TriggerAttribute Around(qint64 change) {
        TriggerAttribute attribute;
        const quint64 type = static_cast<quint64>(Uniform(1, 4));
        attribute.setTriggerType(type);
        // Quarter hours meet Chatham's and Lord Howe's changes.
        const qint64 start = WallTime::Of(change) + Uniform(-3, 1) * WallTime::kDayMSecs +
                             Uniform(-12, 12) * 15 * WallTime::kMinuteMSecs +
                             Uniform(0, 1) * Uniform(0, 59) * 1000;
        attribute.setStartTime(LocalTime::FormatWall(start));
        if (type != 1 && Uniform(0, 3) != 0) {
            const quint64 interval = Uniform(0, 1) == 1 ? static_cast<quint64>(Uniform(1, 16)) * 900
                                                        : static_cast<quint64>(Uniform(1, 7200));
            attribute.setInterval(interval);
            attribute.setDuration(Uniform(0, 1) == 1 ? interval * static_cast<quint64>(Uniform(1, 6)) : 0);
        }
        attribute.setWeekDays(type == 3 ? QString::number(Uniform(1, 7)) : QString());
        attribute.setMonthDays(type == 4 ? QString("%1,%2").arg(Uniform(1, 31)).arg(Uniform(1, 31))
                                         : QString());
        return attribute;
    }

private:
    std::mt19937 m_random;
};

// The instants at which the offset changes, found to the second.
QList<qint64> Changes(qint64 from, qint64 to) {
    QList<qint64> changes;
    constexpr qint64 kStep = 3600000;
    for (qint64 t = from; t < to; t += kStep) {
        if (WallTime::OffsetAt(t) == WallTime::OffsetAt(t + kStep)) {
            continue;
        }
        qint64 low = t;
        qint64 high = t + kStep;
        while (high - low > 1000) {
            const qint64 middle = low + (high - low) / 2;
            (WallTime::OffsetAt(middle) == WallTime::OffsetAt(low) ? low : high) = middle;
        }
        changes << high;
    }
    return changes;
}

class RandomDefinitions : public ::testing::TestWithParam<const char*> {};

// Polling starts never go back in time and never repeat an instant; timer
// starts neither.
TEST_P(RandomDefinitions, StartsOnlyMoveForward) {
    const ZoneScope scope(GetParam());
    const QList<qint64> changes = Changes(Instant("2029-01-01 00:00:00"), Instant("2031-01-01 00:00:00"));
    ASSERT_EQ(changes.size(), 4);
    RandomTrigger random(20290325);
    for (int i = 0; i < 2000; ++i) {
        const qint64 change = changes.at(i % changes.size());
        TriggerObject definition;
        definition.setTriggerAttribute(random.Around(change));
        const qint64 now = change + random.Uniform(-7200, 7200) * 1000LL + random.Uniform(0, 999);
        for (const bool poll : {true, false}) {
            TriggerObject object = definition;
            const QVector<StartTimeSeries::Entry> starts =
                StartTimeSeries::Walk(object, now, 12, poll, false);
            qint64 previous = poll ? CalendarSchedule::MinuteStart(now) : now;
            for (const StartTimeSeries::Entry& start : starts) {
                if (start.state != FireState::kScheduled) {
                    break;
                }
                ASSERT_GT(start.msecs, previous)
                    << (poll ? "poll " : "timer ")
                    << definition.getTriggerAttribute().getStartTime().toStdString() << " type "
                    << definition.getTriggerAttribute().getTriggerType() << " interval "
                    << definition.getTriggerAttribute().getInterval() << " now " << now;
                previous = start.msecs;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Zones, RandomDefinitions,
                         ::testing::Values("Europe/Dublin", "Australia/Lord_Howe", "Pacific/Chatham",
                                           "America/Santiago", "America/New_York"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             QString name = info.param;
                             return name.replace('/', '_').toStdString();
                         });
} // namespace
