// What one write of the metrics file costs the service at a million plans:
// taking the figures from the run state's rows and building the text, with
// no plan in trouble and with a tenth of them overdue (the ordering of the
// named ones is the dearest part then). Also following a first poll's batch
// of a million new schedules. Run: build/bin/metrics_bench
#include "framework/Clock.h"
#include "store/MetricsExposition.h"
#include "store/ScheduleHealth.h"

#include <QCoreApplication>
#include <QDateTime>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <vector>

#include <unistd.h>

namespace {
const quint64 kTypes[] = {1, 2, 2, 2, 3, 3, 4, 257, 259};
constexpr qint64 kDayMSecs = 86400000;

struct Plan {
    QString uuid;
    quint64 type;
    QString nextStart;
    bool ended;
};

// Plans with random times of day over the coming week; `overduePerMille` of
// them with a start an hour ago that nothing ran.
std::vector<Plan> MakePlans(int count, int overduePerMille) {
    std::mt19937 random(7);
    const QDateTime now = Clock::now();
    std::vector<Plan> plans;
    plans.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const quint64 type = kTypes[random() % (sizeof(kTypes) / sizeof(kTypes[0]))];
        const bool overdue = static_cast<int>(random() % 1000) < overduePerMille;
        const qint64 ahead = overdue ? -3600000 : static_cast<qint64>(random() % (7 * kDayMSecs));
        const bool event = type > 4;
        plans.push_back(
            Plan{QString("%1-4c1d-8e2f-9a0b-%2").arg(random(), 8, 16, QChar('0')).arg(i, 12, 10, QChar('0')),
                 type, event ? QString() : now.addMSecs(ahead).toString("yyyy-MM-dd hh:mm:ss"),
                 type == 1 && !overdue && random() % 2 == 0});
    }
    return plans;
}

qint64 ResidentBytes() {
    FILE* statm = std::fopen("/proc/self/statm", "r");
    long pages = 0;
    long resident = 0;
    if (statm != nullptr) {
        [[maybe_unused]] const int read = std::fscanf(statm, "%ld %ld", &pages, &resident);
        std::fclose(statm);
    }
    return static_cast<qint64>(resident) * ::sysconf(_SC_PAGESIZE);
}

void Fill(ScheduleHealth& health, const std::vector<Plan>& plans) {
    const qint64 handed = Clock::nowMSecsSinceEpoch() - kDayMSecs;
    for (const Plan& plan : plans) {
        health.Put(plan.uuid, plan.type, plan.ended ? QString() : plan.nextStart, plan.ended ? 1 : 0, handed,
                   true, 0, handed + 60000);
    }
}

MetricsExposition::Live SomeLive() {
    MetricsExposition::Live live;
    live.startMSecs = Clock::nowMSecsSinceEpoch();
    live.planCommands = {{{"add", "ok"}, 1000000}};
    live.runs.runsByOutcome = {{"on_time", 1000000}, {"late", 10}};
    live.runs.answers = {{"ok", 1000000}, {"refused", 10}};
    return live;
}

void BM_MetricsWrite(benchmark::State& state) {
    const std::vector<Plan> plans =
        MakePlans(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    const qint64 before = ResidentBytes();
    ScheduleHealth health;
    Fill(health, plans);
    // The plan names are shared with the service's own, as they are here.
    state.counters["bytes_per_plan"] =
        static_cast<double>(ResidentBytes() - before) / static_cast<double>(plans.size());
    const MetricsExposition::Live live = SomeLive();
    qint64 bytes = 0;
    for (auto _ : state) {
        const ScheduleHealth::Figures figures = health.Take(Clock::nowMSecsSinceEpoch(), 60000, 100);
        const QByteArray text = MetricsExposition::Build(figures, Clock::nowMSecsSinceEpoch(), live);
        bytes = text.size();
        benchmark::DoNotOptimize(text.constData());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_MetricsWrite)->Args({1000000, 0})->Args({1000000, 100})->Unit(benchmark::kMillisecond);

// The state writer follows each batch; a first poll schedules every plan.
void BM_FollowFirstPoll(benchmark::State& state) {
    const std::vector<Plan> plans = MakePlans(static_cast<int>(state.range(0)), 0);
    for (auto _ : state) {
        ScheduleHealth health;
        for (const Plan& plan : plans) {
            health.NoteSchedule(plan.uuid, plan.type, plan.nextStart, plan.ended ? 1 : 0);
        }
        benchmark::DoNotOptimize(&health);
    }
}
BENCHMARK(BM_FollowFirstPoll)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(2);
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
