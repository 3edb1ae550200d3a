// The run history at scale, measured as its users meet it:
//  1. what a first poll of N plans, each adding one row, costs in CPU on top of
//     the run state it writes anyway (the occurrences recorded, the batch
//     written in one transaction);
//  2. the real orvelctl history over a file of N plans with R rows each,
//     written through the service's own store: --plan P and --since over the
//     last hour, from process start to exit.
// Usage: history_bench [plans] [rows per plan] [state file to keep]
#include "BenchSupport.h"

#include "firing/OccurrenceRecorder.h"
#include "framework/Clock.h"
#include "store/RunStateBatchHold.h"
#include "store/RunStateStore.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <sys/resource.h>
#include <vector>

namespace {
constexpr qint64 kHour = 3600000;

QString PlanUuid(int i) {
    return QString("%1-4c1d-8e2f-9a0b-%2")
        .arg(i * 2654435761u % 4294967291u, 8, 16, QChar('0'))
        .arg(i, 12, 10, QChar('0'));
}

std::vector<TriggerObject> DailyPlans(int plans) {
    std::vector<TriggerObject> objects(static_cast<size_t>(plans));
    for (int i = 0; i < plans; ++i) {
        objects[static_cast<size_t>(i)].setPlanUuid(PlanUuid(i));
        TriggerAttribute attribute;
        attribute.setTriggerType(2);
        attribute.setStartTime(QString("2026-01-01 %1:%2:00")
                                   .arg(i / 60 % 24, 2, 10, QChar('0'))
                                   .arg(i % 60, 2, 10, QChar('0')));
        objects[static_cast<size_t>(i)].setTriggerAttribute(attribute);
    }
    return objects;
}

// One poll's batch: what the run state records of each run anyway, and with
// `history` the occurrence of each as the poll records it. CPU seconds of the
// recording and of the write.
struct Cost {
    double recording;
    double writing;
};

Cost PollBatch(RunStateStore& store, std::vector<TriggerObject>& objects, qint64 dueMSecs, bool history) {
    OccurrenceRecorder recorder;
    recorder.SetRunState(&store);
    const QString due = LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueMSecs));
    const QString next = LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueMSecs + 24 * kHour));
    const double before = BenchSupport::CpuSeconds(RUSAGE_SELF);
    {
        const RunStateBatchHold hold(&store);
        for (TriggerObject& object : objects) {
            store.RecordRun(object.getPlanUuid(), 2, due, dueMSecs + 5);
            store.RecordSchedule(object.getPlanUuid(), 2, next, 0);
            if (history) {
                recorder.Ran(object, dueMSecs, true);
            }
        }
    }
    const double recorded = BenchSupport::CpuSeconds(RUSAGE_SELF);
    store.Flush();
    return Cost{recorded - before, BenchSupport::CpuSeconds(RUSAGE_SELF) - recorded};
}

double Added(const Cost (&cost)[2]) {
    return cost[1].recording + cost[1].writing - cost[0].recording - cost[0].writing;
}

void Report(const QString& what, const Cost (&cost)[2]) {
    std::printf("%s: CPU recording %.3f -> %.3f s, writing %.3f -> %.3f s: +%.3f s\n", qPrintable(what),
                cost[0].recording, cost[1].recording, cost[0].writing, cost[1].writing, Added(cost));
}

// The machine's noise on one round is as large as the figure itself, so the
// verdict is the median of the rounds.
void ReportMedian(const QString& what, std::vector<double> added) {
    std::sort(added.begin(), added.end());
    std::printf("%s: median +%.3f s over %zu rounds (+%.3f to +%.3f s)\n", qPrintable(what),
                added[added.size() / 2], added.size(), added.front(), added.back());
}

// Each round polls a new file, on which every plan gets its number, and a
// file on which the plans are known, as after a restart.
void FirstPollCost(int plans) {
    constexpr int kRounds = 7;
    QTemporaryDir dir;
    std::vector<TriggerObject> objects = DailyPlans(plans);
    const qint64 now = Clock::nowMSecsSinceEpoch();
    std::vector<double> added[2];
    for (int round = 0; round < kRounds; ++round) {
        for (const bool known : {false, true}) {
            Cost cost[2] = {};
            for (const bool history : {false, true}) {
                RunStateStore store;
                const QString path =
                    dir.filePath(QString("poll-%1-%2-%3.db").arg(round).arg(known).arg(history));
                if (known) {
                    QFile::copy(dir.filePath(QString("poll-%1-0-%2.db").arg(round).arg(history)), path);
                }
                store.Open(path, {});
                cost[history] = PollBatch(store, objects, now - now % 60000 + (known ? kHour : 0), history);
                store.Close();
            }
            Report(QString("first poll of %1 plans (%2 file)").arg(plans).arg(known ? "known" : "new"), cost);
            added[known].push_back(Added(cost));
        }
    }
    ReportMedian(QString("first poll of %1 plans, new file").arg(plans), added[0]);
    ReportMedian(QString("first poll of %1 plans, known file").arg(plans), added[1]);
}

// The same poll on a copy of a file whose plans have their full history: the
// rows of the plan index it adds are spread over all of its pages.
void FullHistoryPollCost(const QString& full, int plans, int rows) {
    QTemporaryDir dir;
    std::vector<TriggerObject> objects = DailyPlans(plans);
    const qint64 now = Clock::nowMSecsSinceEpoch();
    Cost cost[2] = {};
    for (const bool history : {false, true}) {
        const QString path = dir.filePath(QString("full-%1.db").arg(history));
        QFile::copy(full, path);
        RunStateStore store;
        store.Open(path, {});
        cost[history] = PollBatch(store, objects, now - now % 60000 + kHour, history);
        store.Close();
    }
    Report(QString("a poll of %1 plans with %2 rows each").arg(plans).arg(rows), cost);
}

// Hourly rows, the newest due in the hour before `end`, written in the
// store's batches as a service running for that many hours would.
void WriteHistory(const QString& path, int plans, int rows, qint64 end) {
    RunStateStore store;
    store.Open(path, {});
    for (int hour = rows; hour >= 1; --hour) {
        {
            const RunStateBatchHold hold(&store);
            for (int i = 0; i < plans; ++i) {
                const qint64 due = end - hour * kHour + (i % 3600) * 1000LL;
                const QString plan = PlanUuid(i);
                store.RecordOccurrence(plan, {due, due + 3 + i % 500, RunHistory::Outcome::OnTime,
                                              RunHistory::Reason::None, 0, 0});
                store.RecordResult(plan, i % 50 == 0 ? 1 : 0, due + 60000 + i % 7000);
            }
        }
        store.Flush();
    }
    store.Close();
}

} // namespace

int main(int argc, char** argv) {
    // As the service does at start-up.
    Clock::PinLocalTimeZone();
    QCoreApplication app(argc, argv);
    const int plans = argc > 1 ? QString(argv[1]).toInt() : 100000;
    const int rows = argc > 2 ? QString(argv[2]).toInt() : 50;
    QTemporaryDir dir;
    const QString path = argc > 3 ? QString(argv[3]) : dir.filePath("state.db");
    FirstPollCost(plans);

    const qint64 end = Clock::nowMSecsSinceEpoch();
    if (!QFileInfo::exists(path)) {
        QElapsedTimer writing;
        writing.start();
        WriteHistory(path, plans, rows, end);
        std::printf("wrote %d rows in %.1f s\n", plans * rows, writing.elapsed() / 1000.0);
    }
    if (rows > 0) {
        FullHistoryPollCost(path, plans, rows);
    }
    const qint64 bytes = QFileInfo(path).size() + QFileInfo(path + "-wal").size();
    std::printf("state file: %lld bytes, %.1f bytes per history row\n", bytes,
                static_cast<double>(bytes) / (static_cast<double>(plans) * rows));
    const QString now = LocalTime::Format(QDateTime::fromMSecsSinceEpoch(end));
    const QList<QStringList> queries = {
        {"--plan", PlanUuid(plans / 2)}, {"--since", "1h"}, {"--since", "1h", "--json"}};
    for (const QStringList& query : queries) {
        for (int run = 0; run < 3; ++run) {
            qint64 output = 0;
            double cpu = 0;
            const double seconds = BenchSupport::RunOrvelctl(
                QStringList{"history", "--state", path, "--now", now} + query, output, cpu);
            std::printf("orvelctl history %s: %.3f s wall, %.3f s CPU (%lld bytes of output)\n",
                        qPrintable(query.join(' ')), seconds, cpu, output);
        }
    }
    return 0;
}
