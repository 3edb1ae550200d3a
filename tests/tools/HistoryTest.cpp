// orvelctl history over a run state file: columns, filters, JSON, and a file
// it must neither change nor wait for.
#include "support/ClockShift.h"

#include "store/RunStateStore.h"
#include "triggers/LocalTime.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
using Outcome = RunHistory::Outcome;
using Reason = RunHistory::Reason;

qint64 At(const char* text) {
    return LocalTime::Parse(text).toMSecsSinceEpoch();
}

struct ToolRun {
    int code;
    QString out;
    QString err;
};

class History : public ::testing::Test {
protected:
    void SetUp() override {
        ClockShift clock(LocalTime::Parse("2026-03-10 12:48:00"));
        RunStateStore store;
        ASSERT_TRUE(store.Open(Path(), {}));
        store.RecordOccurrence("hourly", {At("2026-03-10 11:00:00"), At("2026-03-10 11:00:00") + 120,
                                          Outcome::OnTime, Reason::None, 0, 0});
        store.RecordResult("hourly", 0, At("2026-03-10 11:00:05"));
        store.RecordOccurrence("hourly", {At("2026-03-10 12:00:00"), At("2026-03-10 12:00:00") + 40,
                                          Outcome::OnTime, Reason::None, 0, 0});
        store.RecordResult("hourly", 1, At("2026-03-10 12:00:01"));
        store.RecordOccurrence("nightly", {At("2026-03-09 02:00:00"), At("2026-03-10 04:00:00"),
                                           Outcome::CaughtUp, Reason::ServiceDown, 12000, 0});
        store.RecordOccurrence(
            "minutely", {At("2026-03-10 12:30:00"), -1, Outcome::Merged, Reason::AgentUnreachable, 0, 0});
        store.RecordOccurrence("minutely", {At("2026-03-10 12:31:00"), At("2026-03-10 12:33:10"),
                                            Outcome::OnTime, Reason::None, 0, 1});
        ASSERT_TRUE(store.Flush());
    }

    QString Path() const { return m_dir.filePath("state.db"); }

    ToolRun Orvelctl(const QStringList& extra, const QString& state = QString()) const {
        QProcess process;
        process.start(QString(ORVEL_BIN_DIR) + "/orvelctl",
                      QStringList{"history", "--state", state.isEmpty() ? Path() : state, "--now",
                                  "2026-03-10 12:48:00"} +
                          extra);
        process.waitForFinished(20000);
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QTemporaryDir m_dir;
};

TEST_F(History, ListsOccurrencesNewestFirstInAlignedColumns) {
    const ToolRun run = Orvelctl({});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QStringList expected = {
        "DUE                  HANDED        LATE      OUTCOME    REASON                      RESULT   PLAN",
        "2026-03-10 12:31:00  14min ago     2min      on time    merged 1                    waiting  "
        "minutely",
        "2026-03-10 12:30:00  -             -         merged     agent unreachable           -        "
        "minutely",
        "2026-03-10 12:00:00  47min ago     40 ms     on time    -                           refused  hourly",
        "2026-03-10 11:00:00  1h 47min ago  120 ms    on time    -                           ok       hourly",
        "2026-03-09 02:00:00  8h 48min ago  1 day 2h  caught up  down 1 day 2h, spread 12 s  waiting  "
        "nightly",
    };
    EXPECT_EQ(run.out.split('\n', Qt::SkipEmptyParts), expected) << run.out.toStdString();
}

struct FilterRow {
    const char* name;
    QStringList arguments;
    QStringList plans; // of the rows shown, newest first
};

class HistoryFilter : public History, public ::testing::WithParamInterface<FilterRow> {};

TEST_P(HistoryFilter, ShowsOnlyWhatItAsks) {
    const ToolRun run = Orvelctl(GetParam().arguments + QStringList{"--json"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    QStringList plans;
    for (const QJsonValue& row :
         QJsonDocument::fromJson(run.out.toUtf8()).object().value("occurrences").toArray()) {
        plans << row.toObject().value("plan").toString();
    }
    EXPECT_EQ(plans, GetParam().plans);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, HistoryFilter,
    ::testing::Values(FilterRow{"plan", {"--plan", "hourly"}, {"hourly", "hourly"}},
                      FilterRow{"sinceSpan", {"--since", "1h"}, {"minutely", "minutely", "hourly"}},
                      FilterRow{"sinceMoment",
                                {"--since", "2026-03-10 11:00:00"},
                                {"minutely", "minutely", "hourly", "hourly"}},
                      FilterRow{"outcome", {"--outcome", "caught-up"}, {"nightly"}},
                      FilterRow{"refused", {"--outcome", "refused"}, {"hourly"}},
                      FilterRow{"together", {"--plan", "minutely", "--outcome", "merged"}, {"minutely"}},
                      FilterRow{"unknownPlan", {"--plan", "nosuch"}, {}}),
    [](const ::testing::TestParamInfo<FilterRow>& info) { return std::string(info.param.name); });

TEST_F(History, JsonCarriesEveryField) {
    const ToolRun run = Orvelctl({"--json", "--plan", "nightly"});
    const QJsonObject row =
        QJsonDocument::fromJson(run.out.toUtf8()).object().value("occurrences").toArray().at(0).toObject();
    EXPECT_EQ(row.value("due").toString(), "2026-03-09 02:00:00");
    EXPECT_EQ(row.value("outcome").toString(), "caught-up");
    EXPECT_EQ(row.value("reason").toString(), "service down");
    EXPECT_EQ(row.value("lateMSecs").toDouble(), 26 * 3600 * 1000.0);
    EXPECT_EQ(row.value("spreadMSecs").toDouble(), 12000.0);
    EXPECT_TRUE(row.value("result").isNull());
}

TEST_F(History, BadInputIsOneLineAndTheFileStaysAsItWas) {
    const QByteArray before = QCryptographicHash::hash(
        [&] {
            QFile file(Path());
            file.open(QIODevice::ReadOnly);
            return file.readAll();
        }(),
        QCryptographicHash::Sha256);
    EXPECT_EQ(Orvelctl({"--outcome", "vanished"}).code, 2);
    EXPECT_EQ(Orvelctl({"--since", "yesterday-ish"}).code, 2);
    const ToolRun missing = Orvelctl({}, m_dir.filePath("none.db"));
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.err.count('\n'), 1) << missing.err.toStdString();
    QFile file(Path());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256), before);
}
} // namespace
