// orvelctl preview as its users run it: the texts it prints, the offsets and
// marks of a change night, JSON, and a stored plan going on from its run state.
#include "support/ToolRun.h"

#include "framework/DatabaseFunctionOperation.h"
#include "framework/TriggerAttribute.h"
#include "store/RunStateStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
ToolRun Preview(const QStringList& arguments, const char* zone = "UTC") {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TZ", zone);
    return ToolRun::Of(QString(ORVEL_BIN_DIR) + "/orvelctl", QStringList{"preview"} + arguments, environment);
}

TEST(Preview, PrintsStartTimesOnly) {
    const ToolRun run =
        Preview({"--type", "3", "--start", "2026-01-05 20:00:00", "--week-days", "1,3,5", "--interval", "600",
                 "--duration", "1800", "--now", "2026-03-13 20:25:00", "--count", "3"});
    EXPECT_EQ(run.code, 0);
    // 20:25 lies 1500 s into the 1800 s span, so one more repetition would overrun it.
    EXPECT_EQ(run.out, "2026-03-13 20:25:01\n2026-03-16 20:00:00\n2026-03-16 20:10:00\n");
    EXPECT_TRUE(run.err.isEmpty());
}

TEST(Preview, RefusesBadArgumentsWithOneLine) {
    const QStringList base = {
        "--type", "4", "--start", "2026-01-01 10:00:00", "--now", "2026-01-01 00:00:00"};
    const QList<QStringList> cases = {
        {"--week-days", "0"},    {"--week-days", "8"},  {"--months", "13"},   {"--month-days", "32"},
        {"--month-days", "1,x"}, {"--day-last", "2"},   {"--interval", "-5"}, {"--count", "many"},
        {"--mode", "sometimes"}, {"--end", "tomorrow"}, {"--bogus", "1"},     {"--interval"},
    };
    for (const QStringList& extra : cases) {
        SCOPED_TRACE(extra.join(' ').toStdString());
        const ToolRun run = Preview(base + extra);
        EXPECT_EQ(run.code, 2);
        EXPECT_TRUE(run.out.isEmpty());
        EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
    }
    EXPECT_EQ(Preview({"--type", "1", "--start", "2026-1-1 10:00", "--now", "2026-01-01 00:00:00"}).code, 2);
    EXPECT_EQ(Preview({"--plan", "p", "--type", "1", "--start", "2026-01-01 10:00:00"}).code, 2);
    const ToolRun help = Preview({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.contains("--month-days"));
    EXPECT_TRUE(help.out.contains("Example"));
}

TEST(Preview, StartsFromTheCurrentTimeWithoutNow) {
    const ToolRun run = Preview({"--type", "2", "--start", "2026-01-01 10:00:00", "--count", "2"});
    EXPECT_EQ(run.code, 0) << run.err.toStdString();
    static const QRegularExpression lines("^(\\d{4}-\\d\\d-\\d\\d 10:00:00\n){2}$");
    EXPECT_TRUE(lines.match(run.out).hasMatch()) << run.out.toStdString();
}

// The two 01:00s of Dublin's fall-back night differ in their offsets only.
TEST(Preview, OffsetsTellTheReadingsOfAChangeNightApart) {
    const ToolRun back =
        Preview({"--type", "2", "--start", "2029-10-01 01:00:00", "--interval", "3600", "--now",
                 "2029-10-28 00:30:00", "--count", "3", "--mode", "poll", "--offsets"},
                "Europe/Dublin");
    EXPECT_EQ(back.out, "2029-10-28 01:00:00 +01:00 (in the repeated hour)\n"
                        "2029-10-28 01:00:00 +00:00 (in the repeated hour)\n"
                        "2029-10-28 02:00:00 +00:00\n");
    const ToolRun forward = Preview({"--type", "2", "--start", "2030-09-01 02:15:00", "--now",
                                     "2030-10-05 12:00:00", "--count", "2", "--offsets"},
                                    "Australia/Lord_Howe");
    EXPECT_EQ(forward.out, "2030-10-06 02:45:00 +11:00 (moved on by the skipped time)\n"
                           "2030-10-07 02:15:00 +11:00\n");
}

TEST(Preview, JsonCarriesTheInstantAndTheEnd) {
    const ToolRun run = Preview({"--type", "1", "--start", "2029-03-11 02:30:00", "--now",
                                 "2029-03-11 01:00:00", "--count", "3", "--json"},
                                "America/New_York");
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject root = QJsonDocument::fromJson(run.out.toUtf8()).object();
    EXPECT_EQ(root.value("end").toString(), "finished");
    const QJsonArray starts = root.value("starts").toArray();
    ASSERT_EQ(starts.size(), 1);
    const QJsonObject start = starts.at(0).toObject();
    EXPECT_EQ(start.value("start").toString(), "2029-03-11 03:30:00");
    EXPECT_EQ(start.value("offset").toString(), "-04:00");
    EXPECT_EQ(start.value("utc").toString(), "2029-03-11T07:30:00Z");
    EXPECT_TRUE(start.value("movedByGap").toBool());
}

// A stored plan: its definition from the database, its next start from the
// run state, and from there the span's repetitions as the service goes on.
class StoredPlanPreview : public ::testing::Test {
protected:
    void SetUp() override {
        DatabaseFunctionOperation database;
        QString error;
        ASSERT_TRUE(database.OpenForWriting(Path("alldb.db"), error)) << error.toStdString();
        TriggerAttribute attribute;
        attribute.setTriggerType(3);
        attribute.setStartTime("2029-10-01 00:30:00");
        attribute.setInterval(3600);
        attribute.setDuration(7200);
        ASSERT_TRUE(database.StoreTrigger("span", QString(), attribute, error)) << error.toStdString();
    }

    QString Path(const char* name) const { return dir.filePath(name); }
    ToolRun Run(const QStringList& extra) const {
        return Preview(QStringList{"--db", Path("alldb.db"), "--state", Path("state.db"), "--now",
                                   "2029-10-28 00:00:00", "--count", "3"} +
                           extra,
                       "Europe/Berlin");
    }

    QTemporaryDir dir;
};

TEST_F(StoredPlanPreview, WithoutARunStateStartsWithTheFirstComputation) {
    EXPECT_EQ(Run({"--plan", "span"}).out, "2029-10-28 00:30:00\n2029-10-28 01:30:00\n2029-10-28 02:30:00\n");
}

TEST_F(StoredPlanPreview, GoesOnFromTheNextStartOfItsRunState) {
    RunStateStore store;
    ASSERT_TRUE(store.Open(Path("state.db"), [](const QString&) { return true; }));
    store.RecordSchedule("span", 3, "2029-10-28 01:30:00", 0);
    ASSERT_TRUE(store.Flush());
    store.Close();
    EXPECT_EQ(Run({"--plan", "span"}).out, "2029-10-28 01:30:00\n2029-10-28 02:30:00\n2029-10-29 00:30:00\n");
    const ToolRun unknown = Run({"--plan", "nosuch"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_EQ(unknown.err.count('\n'), 1) << unknown.err.toStdString();
}
} // namespace
