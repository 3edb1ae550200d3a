// Schedule health: which plans count as overdue or refused, which are named,
// and an exposition that Prometheus's own checker accepts at any size.
#include "store/MetricsExposition.h"
#include "store/RunStateStore.h"
#include "store/ScheduleHealth.h"

#include <QDateTime>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
constexpr qint64 kSecond = 1000;
constexpr qint64 kMinute = 60 * kSecond;
constexpr qint64 kOverdueAfter = kMinute;
const QDateTime kNow(QDate(2026, 3, 10), QTime(12, 0, 0));

QString At(qint64 fromNow) {
    return kNow.addMSecs(fromNow).toString("yyyy-MM-dd hh:mm:ss");
}

qint64 Ago(qint64 msecs) {
    return kNow.toMSecsSinceEpoch() - msecs;
}

struct PlanCase {
    const char* name;
    QString nextStart;
    qint64 handedMSecs;
    bool hasResult;
    quint64 result;
    qint64 resultMSecs;
    bool ended;
    quint64 overdue;
    quint64 refused;
};

TEST(ScheduleHealth, OverdueAndRefusedPlans) {
    const PlanCase cases[] = {
        {"start passed long ago", At(-2 * kMinute), 0, false, 0, 0, false, 1, 0},
        {"start passed just now", At(-30 * kSecond), 0, false, 0, 0, false, 0, 0},
        {"start ahead", At(kMinute), 0, false, 0, 0, false, 0, 0},
        {"run waits for its answer", At(kMinute), Ago(2 * kMinute), false, 0, 0, false, 1, 0},
        {"run just handed", At(kMinute), Ago(10 * kSecond), false, 0, 0, false, 0, 0},
        {"run answered", At(kMinute), Ago(2 * kMinute), true, 0, Ago(kMinute), false, 0, 0},
        {"answer to an earlier run", At(kMinute), Ago(2 * kMinute), true, 0, Ago(kMinute * 60), false, 1, 0},
        {"run refused", At(kMinute), Ago(2 * kMinute), true, 1, Ago(kMinute), false, 0, 1},
        {"ended after its run", QString(), Ago(2 * kMinute), true, 0, Ago(kMinute), true, 0, 0},
        // A once plan ends when its run is handed, answered or not.
        {"ended, its run unanswered", QString(), Ago(2 * kMinute), false, 0, 0, true, 1, 0},
    };
    for (const PlanCase& c : cases) {
        ScheduleHealth health;
        health.Put("plan", 2, c.nextStart, c.ended ? 1 : 0, c.handedMSecs, c.hasResult, c.result,
                   c.resultMSecs);
        const ScheduleHealth::Figures figures = health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10);
        EXPECT_EQ(figures.overdue, c.overdue) << c.name;
        EXPECT_EQ(figures.refused, c.refused) << c.name;
        EXPECT_EQ(figures.trouble.size(), c.overdue + c.refused) << c.name;
        EXPECT_EQ((figures.plans.at({2, c.ended})), 1u) << c.name;
    }
}

// The batches the service records change a plan row by row.
TEST(ScheduleHealth, FollowsRunsSchedulesAndAnswers) {
    ScheduleHealth health;
    const auto overdue = [&health] {
        return health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10).overdue;
    };
    health.NoteSchedule("plan", 2, At(-2 * kMinute), 0);
    EXPECT_EQ(overdue(), 1u);
    health.NoteRun("plan", 2, Ago(2 * kMinute));
    health.NoteSchedule("plan", 2, At(kMinute * 60), 0);
    EXPECT_EQ(overdue(), 1u) << "handed, not answered";
    health.NoteResult("plan", 0, Ago(kMinute));
    EXPECT_EQ(overdue(), 0u);
    health.NoteMissed("plan", Ago(kMinute * 30));
    ScheduleHealth::Figures figures = health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10);
    EXPECT_EQ(figures.missed, 1u);
    ASSERT_EQ(figures.trouble.size(), 1u);
    EXPECT_EQ(figures.trouble.front().problem, ScheduleHealth::Problem::Missed);
    health.NoteRun("plan", 2, Ago(kSecond));
    EXPECT_EQ(health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10).missed, 0u) << "a run clears it";
    health.NoteSchedule("plan", 2, QString(), 1);
    EXPECT_EQ(health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10).plans.at({2, true}), 1u);
}

TEST(ScheduleHealth, NamesTheOldestTroubleFirstUpToTheLimit) {
    ScheduleHealth health;
    for (int i = 0; i < 5; ++i) {
        health.Put(QString("overdue-%1").arg(i), 2, At(-(i + 2) * kMinute), 0, 0, false, 0, 0);
        health.Put(QString("refused-%1").arg(i), 2, At(kMinute), 0, Ago(kMinute * 3), true, 1, Ago(kMinute));
    }
    const ScheduleHealth::Figures figures = health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 6);
    ASSERT_EQ(figures.trouble.size(), 6u);
    EXPECT_EQ(figures.troubleLeftOut, 4u);
    EXPECT_EQ(figures.trouble.front().planUuid, "overdue-4");
    EXPECT_EQ(figures.trouble.front().sinceMSecs, Ago(6 * kMinute));
    EXPECT_EQ(figures.trouble[4].planUuid, "overdue-0");
    EXPECT_EQ(figures.trouble[5].problem, ScheduleHealth::Problem::Refused);
    EXPECT_EQ(figures.earliestNextMSecs, Ago(6 * kMinute));
}

// Removing a plan moves the last row into its place; the moved plan must stay
// findable.
TEST(ScheduleHealth, RemovalKeepsTheOtherPlans) {
    ScheduleHealth health;
    for (const char* plan : {"a", "b", "c"}) {
        health.Put(plan, 2, At(kMinute), 0, 0, false, 0, 0);
    }
    health.Remove("a");
    health.Remove("missing");
    health.NoteSchedule("c", 2, At(-2 * kMinute), 0);
    const ScheduleHealth::Figures figures = health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10);
    EXPECT_EQ(figures.plans.at({2, false}), 2u);
    ASSERT_EQ(figures.trouble.size(), 1u);
    EXPECT_EQ(figures.trouble.front().planUuid, "c");
}

// Enough plans to grow the index several times and to make runs of taken
// slots, removed in an order that leaves holes inside those runs: a plan the
// index lost would come back as a second row.
TEST(ScheduleHealth, FindsEveryPlanAfterRemovals) {
    ScheduleHealth health;
    constexpr int kPlans = 2000;
    for (int i = 0; i < kPlans; ++i) {
        health.Put(QString("plan-%1").arg(i), 2, At(kMinute), 0, 0, false, 0, 0);
    }
    int kept = 0;
    for (int i = 0; i < kPlans; ++i) {
        if (i % 3 == 0 || i % 7 == 0) {
            health.Remove(QString("plan-%1").arg(i));
        } else {
            ++kept;
        }
    }
    for (int i = 0; i < kPlans; ++i) {
        if (i % 3 != 0 && i % 7 != 0) {
            health.NoteMissed(QString("plan-%1").arg(i), Ago(kMinute));
        }
    }
    ScheduleHealth::Figures figures = health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 0);
    EXPECT_EQ(figures.plans.at({2, false}), static_cast<quint64>(kept));
    EXPECT_EQ(figures.missed, static_cast<quint64>(kept));
    for (int i = kPlans - 1; i >= 0; --i) {
        health.Remove(QString("plan-%1").arg(i));
    }
    EXPECT_TRUE(health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 0).plans.empty());
}

// What the service records reaches the counts with the batch that writes it:
// starts by outcome, missed ones by reason, lateness, the agent's answers.
TEST(RunTally, CountsWhatTheRunStateRecords) {
    QTemporaryDir dir;
    RunStateStore store;
    ASSERT_TRUE(store.Open(dir.filePath("state.db"), {}));
    using Occurrence = RunHistory::Occurrence;
    const qint64 due = Ago(kMinute * 10);
    store.RecordOccurrence("down",
                           Occurrence{due, -1, RunHistory::Outcome::Missed, RunHistory::Reason::ServiceDown});
    store.RecordOccurrence("stepped", Occurrence{due, due + 3 * kSecond, RunHistory::Outcome::Late,
                                                 RunHistory::Reason::ClockStepped});
    store.RecordRun("stepped", 2, At(-kMinute * 10), due + 3 * kSecond);
    store.RecordResult("stepped", 1, due + 4 * kSecond);
    ASSERT_TRUE(store.Flush());

    const RunTally::Counts counts = store.Tally().Take();
    EXPECT_EQ(counts.runsByOutcome, (std::map<QString, quint64>{{"late", 1}, {"missed", 1}}));
    EXPECT_EQ(counts.missedByReason, (std::map<QString, quint64>{{"service_down", 1}}));
    EXPECT_EQ(counts.answers, (std::map<QString, quint64>{{"ok", 0}, {"refused", 1}}));
    EXPECT_EQ(counts.latenessCount, 1u);
    EXPECT_EQ(counts.lateness[5], 1u) << "3 s: above 1 s, within 5 s";
    const ScheduleHealth::Figures figures = store.Health().Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 10);
    EXPECT_EQ(figures.missed, 1u);
    EXPECT_EQ(figures.refused, 1u);
    store.Close();
}

MetricsExposition::Live SomeLive() {
    MetricsExposition::Live live;
    live.startMSecs = Ago(kMinute * 60);
    live.framesWaiting = 3;
    live.planCommands = {{{"add", "ok"}, 4}, {{"add", "failed"}, 1}};
    live.runs.runsByOutcome = {{"on_time", 7}, {"late", 1}};
    live.runs.answers = {{"ok", 7}, {"refused", 1}};
    live.runs.missedByReason = {{"service_down", 2}};
    live.runs.lateness[0] = 5;
    live.runs.lateness.back() = 1;
    live.runs.latenessCount = 6;
    live.runs.latenessSumSecs = 4000.5;
    return live;
}

// promtool's exit code and what it said.
int PromtoolCheck(const QByteArray& text, QString& said) {
    QProcess promtool;
    promtool.setProcessChannelMode(QProcess::MergedChannels);
    promtool.start(ORVEL_PROMTOOL, {"check", "metrics"});
    promtool.write(text);
    promtool.closeWriteChannel();
    if (!promtool.waitForFinished(60000)) {
        said = "promtool did not finish";
        return -1;
    }
    said = QString::fromUtf8(promtool.readAll());
    return promtool.exitCode();
}

int Series(const QByteArray& text) {
    int series = 0;
    for (const QByteArray& line : text.split('\n')) {
        series += !line.isEmpty() && !line.startsWith('#') ? 1 : 0;
    }
    return series;
}

// Every tenth plan overdue, every twentieth refused, a tenth ended, types of
// every kind: more trouble than the per-plan series may name.
TEST(MetricsExposition, PassesPromtoolAtAnySize) {
    const quint64 types[] = {1, 2, 3, 4, 257, 258, 259, 260};
    for (const int plans : {10, 100000}) {
        ScheduleHealth health;
        for (int i = 0; i < plans; ++i) {
            const quint64 type = types[i % 8];
            const QString next = type > 4 ? QString() : At((i % 10 == 0 ? -5 : 5) * kMinute);
            health.Put(QString("plan-%1").arg(i), type, next, i % 10 == 1 ? 1 : 0, Ago(kMinute * 2),
                       i % 20 != 3, i % 20 == 2 ? 1 : 0, Ago(kMinute));
        }
        const ScheduleHealth::Figures figures = health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 100);
        const QByteArray text = MetricsExposition::Build(figures, Ago(kSecond), SomeLive());
        QString said;
        EXPECT_EQ(PromtoolCheck(text, said), 0) << plans << " plans: " << said.toStdString();
        EXPECT_TRUE(said.isEmpty()) << said.toStdString();
        EXPECT_LE(Series(text), 200) << plans;
        EXPECT_TRUE(text.endsWith("# EOF\n"));
    }
}

// A plan name from the database cannot end its label or start a line.
TEST(MetricsExposition, EscapesPlanNames) {
    ScheduleHealth health;
    health.Put("evil\"} 1\nforged_total 9\\", 2, At(-kMinute * 5), 0, 0, false, 0, 0);
    const QByteArray text =
        MetricsExposition::Build(health.Take(kNow.toMSecsSinceEpoch(), kOverdueAfter, 100), 0, std::nullopt);
    EXPECT_FALSE(text.contains("\nforged_total")) << text.toStdString();
    EXPECT_TRUE(text.contains(R"(plan="evil\"} 1\nforged_total 9\\")")) << text.toStdString();
    QString said;
    EXPECT_EQ(PromtoolCheck(text, said), 0) << said.toStdString();
    EXPECT_FALSE(text.contains("orvel_scheduler_up")) << "only the service knows whether it runs";
}
} // namespace
