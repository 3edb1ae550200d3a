// What the history says of a start: the cause read from the clocks, and the
// daylight-saving cases of a run, each row in its own zone.
#include "support/ClockShift.h"
#include "support/TriggerBuilder.h"

#include "firing/OccurrenceRecorder.h"
#include "store/RunHistoryReader.h"
#include "store/RunStateStore.h"
#include "triggers/LocalTime.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {
using Reason = RunHistory::Reason;
using Outcome = RunHistory::Outcome;
constexpr qint64 kMinute = 60000;

// The process's zone for the life of one row.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone) : m_saved(qgetenv("TZ")) { Set(zone); }
    ~ZoneScope() { Set(m_saved.constData()); }
    ZoneScope(const ZoneScope&) = delete;
    ZoneScope& operator=(const ZoneScope&) = delete;

private:
    static void Set(const char* zone) {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    QByteArray m_saved;
};

struct CauseRow {
    const char* name;
    qint64 wallMoved;
    qint64 bootMoved;
    qint64 monotonicMoved;
    qint64 dueAfterStart; // when the start was due, from the service's start
    Reason cause;
};

class Cause : public ::testing::TestWithParam<CauseRow> {};

// Two looks at the clocks a given span apart, then a start due inside it.
TEST_P(Cause, IsReadFromHowTheClocksMoved) {
    const CauseRow& row = GetParam();
    const qint64 started = LocalTime::Parse("2026-03-10 08:00:00").toMSecsSinceEpoch();
    OccurrenceRecorder recorder({started, 5000, 4000});
    const OccurrenceRecorder::Reading first{started + 1000, 6000, 5000};
    recorder.Look(first);
    recorder.Look({first.wallMSecs + row.wallMoved, first.bootMSecs + row.bootMoved,
                   first.monotonicMSecs + row.monotonicMoved});
    EXPECT_EQ(recorder.Classify(started + row.dueAfterStart), row.cause);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Cause,
    ::testing::Values(CauseRow{"stepForward", 10 * kMinute, 500, 500, 2 * kMinute, Reason::ClockStepped},
                      CauseRow{"driftWithinTolerance", 1500, 1000, 1000, 500, Reason::Delayed},
                      CauseRow{"sleep", 10 * kMinute, 10 * kMinute, 500, 2 * kMinute, Reason::MachineSlept},
                      CauseRow{"busy", 900, 900, 900, 500, Reason::Delayed},
                      CauseRow{"moveBeforeTheStart", 10 * kMinute, 500, 500, 20 * kMinute, Reason::Delayed},
                      CauseRow{"downtime", 500, 500, 500, -kMinute, Reason::ServiceDown}),
    [](const ::testing::TestParamInfo<CauseRow>& info) { return std::string(info.param.name); });

struct RunRow {
    const char* name;
    const char* zone;
    const char* start;  // the plan's daily start
    const char* dueUtc; // the start that ran, in UTC: a repeated hour's two are apart
    Outcome outcome;
    Reason reason;
};

class RunOutcome : public ::testing::TestWithParam<RunRow> {};

TEST_P(RunOutcome, NamesTheDaylightSavingCases) {
    const RunRow& row = GetParam();
    ZoneScope zone(row.zone);
    QDateTime dueUtc = QDateTime::fromString(row.dueUtc, "yyyy-MM-dd hh:mm:ss");
    dueUtc.setTimeSpec(Qt::UTC);
    const qint64 due = dueUtc.toMSecsSinceEpoch();
    ClockShift clock(QDateTime::fromMSecsSinceEpoch(due + 200));
    QTemporaryDir dir;
    RunStateStore store;
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), {}));
    OccurrenceRecorder recorder;
    recorder.SetRunState(&store);
    TriggerObject object = MakeTrigger("plan", {2, row.start});
    recorder.Ran(object, due, true);
    ASSERT_TRUE(store.Flush());
    RunHistoryReader reader;
    QString error;
    QVector<RunHistoryReader::Row> rows;
    ASSERT_TRUE(reader.Open(dir.filePath("state.db"), error) && reader.Read({}, rows, error));
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows.front().outcome, row.outcome);
    EXPECT_EQ(rows.front().reason, row.reason);
    EXPECT_GE(rows.front().handedMSecs - rows.front().dueMSecs, 200);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RunOutcome,
    ::testing::Values(RunRow{"onTime", "Europe/Berlin", "2026-03-01 02:30:00", "2026-03-28 01:30:00",
                             Outcome::OnTime, Reason::None},
                      RunRow{"springForwardGap", "Europe/Berlin", "2026-03-01 02:30:00",
                             "2026-03-29 01:30:00", Outcome::Moved, Reason::DaylightGap},
                      RunRow{"ownTimeAfterTheGap", "Europe/Berlin", "2026-03-01 03:30:00",
                             "2026-03-29 01:30:00", Outcome::OnTime, Reason::None},
                      RunRow{"firstOfARepeatedHour", "Europe/Berlin", "2026-03-01 02:30:00",
                             "2026-10-25 00:30:00", Outcome::OnTime, Reason::RepeatedHour},
                      RunRow{"secondOfARepeatedHour", "Europe/Berlin", "2026-03-01 02:30:00",
                             "2026-10-25 01:30:00", Outcome::OnTime, Reason::RepeatedHour},
                      RunRow{"noDaylightSaving", "UTC", "2026-03-01 02:30:00", "2026-10-25 02:30:00",
                             Outcome::OnTime, Reason::None}),
    [](const ::testing::TestParamInfo<RunRow>& info) { return std::string(info.param.name); });
} // namespace
