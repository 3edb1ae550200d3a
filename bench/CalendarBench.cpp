// What one next-start computation costs per plan, the computation alone: no
// fire, no report, no log. Random calendar definitions of all four types, a
// first computation and a follow-up after a run, and the parse of the rule
// that a plan pays once. Run:
// build/bin/calendar_bench (the zone is the process's, as in the service).
#include "framework/Clock.h"
#include "framework/TriggerAttribute.h"
#include "triggers/CalendarSchedule.h"
#include "triggers/FireState.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

#include <QDateTime>
#include <QStringList>

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {
constexpr int kPlans = 10000;

class RandomPlans {
public:
    explicit RandomPlans(unsigned seed) : m_random(seed) {}

    TriggerAttribute Next() {
        TriggerAttribute attribute;
        const quint64 type = static_cast<quint64>(Uniform(1, 4));
        attribute.setTriggerType(type);
        attribute.setStartTime(QString("2026-%1-%2 %3:%4:%5")
                                   .arg(Uniform(1, 6), 2, 10, QChar('0'))
                                   .arg(Uniform(1, 28), 2, 10, QChar('0'))
                                   .arg(Uniform(0, 23), 2, 10, QChar('0'))
                                   .arg(Uniform(0, 59), 2, 10, QChar('0'))
                                   .arg(Uniform(0, 59), 2, 10, QChar('0')));
        if (type != 1 && Uniform(0, 1) == 1) {
            const quint64 interval = static_cast<quint64>(Uniform(1, 120)) * 60;
            attribute.setInterval(interval);
            attribute.setDuration(Uniform(0, 1) == 1 ? interval * static_cast<quint64>(Uniform(1, 8)) : 0);
        }
        if (type == 3) {
            attribute.setWeekDays(Subset(7, 3));
        }
        if (type == 4) {
            attribute.setMonthDays(Subset(31, 4));
            attribute.setWhichMoths(Uniform(0, 1) == 1 ? Subset(12, 6) : QString());
            attribute.setDayLastFlag(static_cast<quint64>(Uniform(0, 1)));
        }
        return attribute;
    }

private:
    int Uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }

    // Up to `most` distinct values of 1..highest, unsorted, as a list text.
    QString Subset(int highest, int most) {
        QStringList values;
        const int count = Uniform(1, most);
        while (values.size() < count) {
            const QString value = QString::number(Uniform(1, highest));
            if (!values.contains(value)) {
                values << value;
            }
        }
        return values.join(',');
    }

    std::mt19937 m_random;
};

// The rule is parsed when the plan is loaded, before any computation.
struct Plan {
    TriggerObject object;
    ScheduleProgress followUp;
    qint64 firstStart = 0;
};

std::vector<Plan> MakePlans(qint64 now) {
    RandomPlans random(20260310);
    std::vector<Plan> plans(kPlans);
    for (Plan& plan : plans) {
        plan.object.setTriggerAttribute(random.Next());
        const ScheduleResult first = CalendarSchedule::Compute(plan.object.getCalendarRule(), {}, now, now);
        plan.followUp = first.progress;
        plan.firstStart = first.state == FireState::kScheduled ? first.nextMSecs : now;
    }
    return plans;
}

benchmark::Counter PerPlan() {
    return benchmark::Counter(kPlans,
                              benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

qint64 Now() {
    return LocalTime::Parse("2026-06-10 10:17:00").toMSecsSinceEpoch();
}

void BM_FirstComputation(benchmark::State& state) {
    const qint64 now = Now();
    std::vector<Plan> plans = MakePlans(now);
    for (auto _ : state) {
        for (Plan& plan : plans) {
            benchmark::DoNotOptimize(
                CalendarSchedule::Compute(plan.object.getCalendarRule(), {}, now, now).state);
        }
    }
    state.counters["per_plan"] = PerPlan();
}
BENCHMARK(BM_FirstComputation)->Unit(benchmark::kMillisecond);

void BM_FollowUp(benchmark::State& state) {
    const qint64 now = Now();
    std::vector<Plan> plans = MakePlans(now);
    for (auto _ : state) {
        for (Plan& plan : plans) {
            benchmark::DoNotOptimize(
                CalendarSchedule::Compute(plan.object.getCalendarRule(), plan.followUp, plan.firstStart, now)
                    .state);
        }
    }
    state.counters["per_plan"] = PerPlan();
}
BENCHMARK(BM_FollowUp)->Unit(benchmark::kMillisecond);
// What the rule costs once per plan, when the plan is loaded or changed.
void BM_ParseRule(benchmark::State& state) {
    std::vector<Plan> plans = MakePlans(Now());
    for (auto _ : state) {
        for (const Plan& plan : plans) {
            benchmark::DoNotOptimize(CalendarRule(plan.object.getTriggerAttribute()).type());
        }
    }
    state.counters["per_plan"] = PerPlan();
}
BENCHMARK(BM_ParseRule)->Unit(benchmark::kMillisecond);
} // namespace

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
