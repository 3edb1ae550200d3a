// Costs of the hot paths: one start-time computation per type, loading the
// store at start-up, the poll over idle fires, the first poll after start-up
// and arming timer fires, and the peer's user id lookup that each command
// connection costs. Run: build/bin/orvel_bench
#include "BenchSupport.h"

#include "communication/SchedulerClientCommunManager.h"
#include "firing/TriggerFireManager.h"
#include "firing/TriggerFireManagerWork.h"
#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "framework/Logger.h"
#include "framework/PeerAccessPolicy.h"
#include "framework/PeerCredentials.h"
#include "store/RunStateStore.h"
#include "store/SchedulerDataStoreManager.h"
#include "store/SchedulerMemoryObjects.h"
#include "timing/DeadlineTimer.h"
#include "triggers/DateTimeFire.h"
#include "triggers/TriggerObject.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>
#include <log4cpp/Category.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/RollingFileAppender.hh>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace {
// Time per item of an iteration that handles count items.
benchmark::Counter PerItem(int count) {
    return benchmark::Counter(static_cast<double>(count),
                              benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

struct SeekCase {
    quint64 type;
    const char* weekDays;
    const char* monthDays;
    quint64 interval;
};

const SeekCase kSeekCases[] = {{1, "", "", 0},     {2, "", "", 0},   {3, "1,3,5", "", 0},
                               {4, "", "1,15", 0}, {2, "", "", 600}, {3, "1,3,5", "", 600}};

void SeekNextStartTime(benchmark::State& state, bool followUp) {
    const SeekCase& c = kSeekCases[state.range(0)];
    TriggerObject object;
    object.setPlanUuid("bench");
    TriggerAttribute& attribute = object.getObjectTriggerAttribute();
    attribute.setTriggerType(c.type);
    attribute.setStartTime(c.type == 1 ? "2099-01-01 08:00:00" : "2026-01-05 08:00:00");
    attribute.setWeekDays(c.weekDays);
    attribute.setMonthDays(c.monthDays);
    attribute.setInterval(c.interval);
    DateTimeFire fire;
    fire.SetTriggerObject(&object);
    const QDateTime now = QDateTime::fromString("2026-03-10 10:00:00", "yyyy-MM-dd hh:mm:ss");
    QDateTime next;
    for (auto _ : state) {
        object.setFirstSeekDone(followUp ? 1 : 0);
        object.setRepeatCount(0);
        benchmark::DoNotOptimize(fire.SeekNextStartTime(now, next));
    }
    state.SetLabel(
        QString("type %1%2").arg(c.type).arg(c.interval != 0 ? " with interval" : "").toStdString());
}

void BM_SeekFirst(benchmark::State& state) {
    SeekNextStartTime(state, false);
}
void BM_SeekFollowUp(benchmark::State& state) {
    SeekNextStartTime(state, true);
}
BENCHMARK(BM_SeekFirst)->DenseRange(0, 5);
BENCHMARK(BM_SeekFollowUp)->DenseRange(1, 5);

// Start-up: data/alldb.db with N plans into the registry.
void BM_LoadStore(benchmark::State& state) {
    QTemporaryDir dir;
    const QString path = dir.filePath("alldb.db");
    const int count = static_cast<int>(state.range(0));
    BenchSupport::StorePlans(path, count);
    // Freed pages are reused by later iterations; the first load tells the cost.
    qint64 residentPerTrigger = 0;
    for (auto _ : state) {
        state.PauseTiming();
        SchedulerDataStoreManager store;
        const qint64 before = BenchSupport::ResidentBytes();
        state.ResumeTiming();
        store.Init(path);
        state.PauseTiming();
        residentPerTrigger = qMax(residentPerTrigger, (BenchSupport::ResidentBytes() - before) / count);
        store.UnInit();
        state.ResumeTiming();
    }
    state.counters["resident_bytes_per_trigger"] = static_cast<double>(residentPerTrigger);
    state.counters["per_trigger_ns"] = PerItem(count);
}
BENCHMARK(BM_LoadStore)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

// N registered plans with fires loaded in the configured mode.
class FiredPlans {
public:
    FiredPlans(int count, quint64 fireType, bool computed) {
        ConfigReader::setDateTimeFireType(fireType);
        INSTANCE_SCHEDULER_MEMORY_OBJECTS->Init();
        for (int i = 0; i < count; ++i) {
            auto* object = new TriggerObject();
            object->setPlanUuid(QString("plan-%1").arg(i));
            object->setTriggerAttribute(BenchSupport::QuietTrigger(i));
            if (computed) {
                object->setFirstSeekDone(1);
                object->setNextStartTime("2099-01-01 08:00:00");
            }
            INSTANCE_SCHEDULER_MEMORY_OBJECTS->InsertTriggerObject(object->getPlanUuid(), object);
        }
        manager.Init();
    }
    ~FiredPlans() {
        manager.Stop();
        manager.UnInit();
        INSTANCE_SCHEDULER_MEMORY_OBJECTS->UnInit();
        ConfigReader::ResetToDefaults();
    }
    TriggerFireManager manager;
};

void Poll() {
    QMetaObject::invokeMethod(&TriggerFireManagerWork::Instance(), "onAtTimerOut", Qt::DirectConnection);
}

// Steady state: nothing is due, so a poll only reads the clock.
void BM_PollIdle(benchmark::State& state) {
    FiredPlans plans(static_cast<int>(state.range(0)), 0, true);
    Poll();
    for (auto _ : state) {
        Poll();
    }
}
BENCHMARK(BM_PollIdle)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// A full walk over fires that are not due, as after a plan was added: the
// stored next start texts are compared, not parsed again.
void BM_PollWalk(benchmark::State& state) {
    FiredPlans plans(static_cast<int>(state.range(0)), 0, true);
    Poll();
    TriggerObject extra;
    extra.setPlanUuid("extra");
    extra.setTriggerAttribute(BenchSupport::QuietTrigger(0));
    extra.setFirstSeekDone(1);
    extra.setNextStartTime("2099-01-01 08:00:00");
    for (auto _ : state) {
        state.PauseTiming();
        TriggerFireManager::NewTriggerFireCommand(&extra);
        state.ResumeTiming();
        Poll();
        state.PauseTiming();
        TriggerFireManager::RemoveTriggerFire("extra", extra.getObjectTriggerAttribute().getTriggerType());
        state.ResumeTiming();
    }
}
BENCHMARK(BM_PollWalk)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// The first poll after start-up: every trigger computes its first start and
// hands its trigger-info command to the client link, with the log written to
// a file as in production. With the run state (second argument 1) the link
// records every schedule and the batch is written in one transaction, which
// the timing includes: the difference is what the state file costs.
void BM_FirstPoll(benchmark::State& state) {
    QTemporaryDir dir;
    Logger::Initialize(dir.path() + "/", "log", "bench.log");
    SchedulerClientCommunManager link;
    CommunAttribute attribute;
    attribute.setProtocolType(2);
    attribute.setDestSvrNameIp(ConfigReader::getAgentLocalServerName());
    link.Init();
    link.SetCommunAttribute(attribute);
    link.Start();
    RunStateStore runState;
    const bool recorded = state.range(1) != 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto* plans = new FiredPlans(static_cast<int>(state.range(0)), 0, false);
        plans->manager.Start();
        if (recorded) {
            runState.Open(dir.path() + "/state.db", {});
        }
        state.ResumeTiming();
        Poll();
        runState.Flush();
        state.PauseTiming();
        runState.Close();
        delete plans;
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
    link.Stop();
    Logger::UnInitialize();
    state.SetLabel(recorded ? "with run state" : "without run state");
}
BENCHMARK(BM_FirstPoll)->Args({100000, 0})->Args({100000, 1})->Unit(benchmark::kMillisecond)->Iterations(3);

// One batch of run state: N plans' schedules recorded (second argument 0) or
// recorded and written in one transaction (1).
void BM_RunStateBatch(benchmark::State& state) {
    QTemporaryDir dir;
    RunStateStore store;
    store.Open(dir.path() + "/state.db", {});
    const int count = static_cast<int>(state.range(0));
    QStringList plans;
    for (int i = 0; i < count; ++i) {
        plans << QString("%1-4c1d-8e2f-9a0b-%2").arg(i, 8, 16, QChar('0')).arg(i, 12, 10, QChar('0'));
    }
    for (auto _ : state) {
        for (int i = 0; i < count; ++i) {
            store.RecordSchedule(plans.at(i), 2, "2026-03-11 08:00:00", 0);
        }
        if (state.range(1) == 0) {
            state.PauseTiming();
        }
        store.Flush();
        if (state.range(1) == 0) {
            state.ResumeTiming();
        }
    }
    state.counters["per_plan"] = PerItem(count);
}
BENCHMARK(BM_RunStateBatch)
    ->Args({100000, 0})
    ->Args({100000, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// One info line of the kind start-up writes per plan, through the service's
// log into its file; against log4cpp's own rolling file with a pattern layout,
// which writes and checks the file size for every line.
void BM_LogLine(benchmark::State& state) {
    QTemporaryDir dir;
    Logger::Initialize(dir.path() + "/", "log", "bench.log");
    if (state.range(0) == 1) {
        auto* appender = new log4cpp::RollingFileAppender("file", dir.filePath("log/bench.log").toStdString(),
                                                          10 * 1024 * 1024, 5, true, 00644);
        auto* layout = new log4cpp::PatternLayout();
        layout->setConversionPattern("%d{%Y-%m-%d %H:%M:%S.%l} [%t] %-5p %m%n");
        appender->setLayout(layout);
        Logger::GetFileLogHandle().removeAllAppenders();
        Logger::GetFileLogHandle().addAppender(appender);
    }
    const QString planUuid("{0001e240-5c1e-4d7a-9b2f-3c9e7a1d2b4f}");
    for (auto _ : state) {
        Logger::Info(QString("The TriggerFire of scheduler[%1] start success.").arg(planUuid));
    }
    state.SetLabel(state.range(0) == 1 ? "log4cpp rolling file, pattern layout" : "service log");
    Logger::UnInitialize();
}
BENCHMARK(BM_LogLine)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// Timer mode: starting N timer fires, each computing its first start and
// arming its timer.
void BM_ArmTimerFires(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto* plans = new FiredPlans(static_cast<int>(state.range(0)), 1, false);
        state.ResumeTiming();
        plans->manager.Start();
        state.PauseTiming();
        delete plans;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ArmTimerFires)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(2);

// A timer that does nothing when it expires.
struct IdleTimer : DeadlineTimer {
    void Expired(qint64) override {}
};

// Arming N timers due at random instants of the coming week, as a schedule
// with random times of day has them: the deadline queue of the timer mode
// against one Qt timer per fire, which it replaced.
void BM_ArmDeadlineTimers(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    std::mt19937 random(1);
    std::uniform_int_distribution<qint64> within(1, 7 * 24 * 3600 * 1000LL);
    const qint64 now = Clock::nowMSecsSinceEpoch();
    for (auto _ : state) {
        std::vector<std::unique_ptr<IdleTimer>> timers;
        timers.reserve(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            timers.push_back(std::make_unique<IdleTimer>());
            timers.back()->startAt(now + within(random), 60000);
        }
        state.PauseTiming();
        timers.clear();
        state.ResumeTiming();
    }
    state.counters["per_timer_ns"] = PerItem(count);
}
BENCHMARK(BM_ArmDeadlineTimers)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_ArmQtTimers(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    std::mt19937 random(1);
    std::uniform_int_distribution<int> within(1, std::numeric_limits<int>::max());
    for (auto _ : state) {
        std::vector<std::unique_ptr<QTimer>> timers;
        timers.reserve(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            timers.push_back(std::make_unique<QTimer>());
            timers.back()->setTimerType(Qt::PreciseTimer);
            timers.back()->start(within(random));
        }
        state.PauseTiming();
        timers.clear();
        state.ResumeTiming();
    }
    state.counters["per_timer_ns"] = PerItem(count);
}
BENCHMARK(BM_ArmQtTimers)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(1);

// The server's end of one loopback TCP connection, and the client's.
struct LoopbackConnection {
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int accepted = -1;

    LoopbackConnection() {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        ::bind(listener, reinterpret_cast<sockaddr*>(&address), length);
        ::listen(listener, 1);
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        ::connect(client, reinterpret_cast<sockaddr*>(&address), length);
        accepted = ::accept(listener, nullptr, nullptr);
    }
    ~LoopbackConnection() {
        ::close(accepted);
        ::close(client);
        ::close(listener);
    }
};

// What the command server pays once per connection to learn who is calling.
void BM_PeerUidLookup(benchmark::State& state) {
    const LoopbackConnection connection;
    for (auto _ : state) {
        benchmark::DoNotOptimize(PeerCredentials::OfSocket(connection.accepted));
    }
}
BENCHMARK(BM_PeerUidLookup)->Unit(benchmark::kMicrosecond);

// What each command costs to be checked: 0 an allowed user, 1 a member of an
// allowed group (the account database is read), 2 a refused user.
void BM_AccessCheck(benchmark::State& state) {
    const PeerAccessPolicy policy({"root"}, {"nogroup"});
    const uid_t users[] = {0, 65534, 1234567};
    const uid_t uid = users[state.range(0)];
    for (auto _ : state) {
        benchmark::DoNotOptimize(policy.Allows(uid));
    }
}
BENCHMARK(BM_AccessCheck)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
} // namespace

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
