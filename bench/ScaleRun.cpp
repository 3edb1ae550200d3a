// The real service executable at scale, measured from outside as its users
// see it: a plan database of N realistic plans (ScalePlans), a stand-in agent
// that acknowledges every command, and for each plan count and firing mode
// the time from process start to "SchedulerService start success.", the time
// until the agent has a trigger-info (601) for every calendar plan, the round
// trips of plan commands sent meanwhile, the idle CPU afterwards, resident
// memory per plan, and the time from SIGTERM to exit.
// Usage: scale_run --help
#include "BenchClient.h"
#include "CountingAgent.h"
#include "ReservedPort.h"
#include "ScalePlans.h"
#include "ServiceUnderTest.h"

#include "framework/Clock.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>
#include <vector>

namespace {
using Steady = std::chrono::steady_clock;

struct Options {
    QList<int> plans;
    QStringList modes;
    int idleSecs = 60;
    int timeoutSecs = 900;
    int quietMinutes = 90;
    unsigned seed = 1;
    bool commands = true;
    bool keep = false;
    bool restart = false;
    QString executable;
};

double SecondsBetween(Steady::time_point from, Steady::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

// Plan commands one at a time, 10 ms apart, from the moment the command
// server accepts a connection until told to stop; each latency is kept with
// the moment its request went out.
class CommandProbe {
public:
    struct Sample {
        Steady::time_point sent;
        double milliseconds;
    };

    explicit CommandProbe(ServiceUnderTest& service) : m_thread([this, &service] { Run(service); }) {}
    ~CommandProbe() { Finish(); }

    std::vector<double> LatenciesBetween(Steady::time_point from, Steady::time_point to) {
        Finish();
        std::vector<double> latencies;
        for (const Sample& sample : m_samples) {
            if (sample.sent >= from && sample.sent <= to) {
                latencies.push_back(sample.milliseconds);
            }
        }
        std::sort(latencies.begin(), latencies.end());
        return latencies;
    }

private:
    void Finish() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    void Run(const ServiceUnderTest& service) {
        std::unique_ptr<BenchClient> client;
        while (!m_stop && !client) {
            client = std::make_unique<BenchClient>();
            if (service.CommandPort() == 0 || !client->Connect(service.CommandPort())) {
                client.reset();
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        for (int i = 0; !m_stop; ++i) {
            const QByteArray frame = BenchClient::ModifyFrame(QString("scale-probe-%1").arg(i % 50));
            const auto sent = Steady::now();
            client->Send(frame);
            if (!client->ReadReply()) {
                return;
            }
            m_samples.push_back(
                {sent, std::chrono::duration<double, std::milli>(Steady::now() - sent).count()});
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    std::atomic<bool> m_stop{false};
    std::vector<Sample> m_samples;
    std::thread m_thread;
};

// The command server takes any free port and logs it.
// The log is kept whole for the run: a million plans fill the default five
// files of 10 MiB many times over, and the lines the run reads would roll away
// between two reads.
void WriteConfig(const QString& path, quint16 agentPort, bool timerMode) {
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(QString("[Communication]\nAgentPort=%1\nSchedulerPort=0\n[Scheduler]\nDateTimeFireType=%2\n"
                       "[Log]\nMaxFileMiB=4096\n")
                   .arg(agentPort)
                   .arg(timerMode ? 1 : 0)
                   .toUtf8());
}

// Waits, at most a minute, until the service uses less than 1 % of a core
// over a whole second; gives the seconds waited.
double Settle(const ServiceUnderTest& service) {
    const auto start = Steady::now();
    for (int second = 0; second < 60; ++second) {
        const qint64 before = service.CpuNanos();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        if (service.CpuNanos() - before < 10 * 1000 * 1000) {
            break;
        }
    }
    return SecondsBetween(start, Steady::now());
}

QString Figure(double seconds) {
    return seconds < 0 ? QString("-") : QString::number(seconds, 'f', 2) + " s";
}

// The same folder started again after the first run's SIGTERM, with the run
// state that run wrote: how long a start-up takes whose plans resume.
bool Restart(const Options& options, const QString& folder, const CountingAgent& agent) {
    const qint64 commandsBefore = agent.Commands();
    // The first run's start line must not be taken for this one's.
    QFile::remove(folder + "/log/schedulerservice.log");
    ServiceUnderTest service(folder);
    const auto spawned = Steady::now();
    if (!service.Spawn(options.executable)) {
        return false;
    }
    const auto deadline = spawned + std::chrono::seconds(options.timeoutSecs);
    while (service.StartSuccessMSecs() < 0) {
        if (service.HasExited() || Steady::now() > deadline) {
            std::printf("  restart: no start success\n");
            return false;
        }
        service.ScanLog();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const double startSecs =
        static_cast<double>(service.StartSuccessMSecs() - service.SpawnedAtMSecs()) / 1000;
    const double settleSecs = Settle(service);
    std::printf("  restart: start success %6.2f s after the process started, settled %.2f s later; CPU "
                "%.2f s in all threads, %.2f s on the application thread; %lld commands to the agent\n",
                startSecs, settleSecs, static_cast<double>(service.CpuNanos()) / 1e9,
                static_cast<double>(service.MainThreadCpuNanos()) / 1e9,
                static_cast<long long>(agent.Commands() - commandsBefore));
    int exitCode = -1;
    return service.Terminate(options.timeoutSecs, exitCode) >= 0 && exitCode == 0;
}

bool RunOne(const Options& options, int plans, const QString& mode) {
    QTemporaryDir dir;
    dir.setAutoRemove(!options.keep);
    QDir(dir.path()).mkpath("cfg");
    QDir(dir.path()).mkpath("data");
    ReservedPort agentPort;
    WriteConfig(dir.filePath("cfg/config.ini"), agentPort.port(), mode == "timer");

    const auto generating = Steady::now();
    ScalePlans generator(Clock::now(), options.quietMinutes, options.seed);
    const int expected = generator.Store(dir.filePath("data/alldb.db"), plans);
    if (expected < 0) {
        std::fprintf(stderr, "cannot write the plan database\n");
        return false;
    }
    std::printf("%s, %d plans (%d calendar plans to report), database written in %.1f s%s\n",
                qPrintable(mode), plans, expected, SecondsBetween(generating, Steady::now()),
                options.keep ? qPrintable(" in " + dir.path()) : "");
    std::fflush(stdout);

    CountingAgent agent(agentPort.Listen(), plans);
    ServiceUnderTest service(dir.path());
    const auto spawned = Steady::now();
    if (!service.Spawn(options.executable)) {
        std::fprintf(stderr, "cannot start %s\n", qPrintable(options.executable));
        return false;
    }
    std::unique_ptr<CommandProbe> probe(options.commands ? new CommandProbe(service) : nullptr);

    const auto deadline = spawned + std::chrono::seconds(options.timeoutSecs);
    qint64 startedAt = -1;
    Steady::time_point started;
    while (agent.ReportedPlans() < expected || startedAt < 0) {
        if (service.HasExited() || Steady::now() > deadline) {
            std::printf("  the service %s: start success %s, %d of %d plans reported\n",
                        service.HasExited() ? "exited" : "timed out", startedAt < 0 ? "not seen" : "seen",
                        agent.ReportedPlans(), expected);
            return false;
        }
        service.ScanLog();
        if (startedAt < 0 && (startedAt = service.StartSuccessMSecs()) >= 0) {
            started = spawned + std::chrono::milliseconds(startedAt - service.SpawnedAtMSecs());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const double cpuSecs = static_cast<double>(service.CpuNanos()) / 1e9;
    const double mainCpuSecs = static_cast<double>(service.MainThreadCpuNanos()) / 1e9;
    const auto reported = std::max(agent.LastReport(), spawned);
    const double startSecs = SecondsBetween(spawned, started);
    const double reportSecs = SecondsBetween(spawned, reported);
    std::printf("  start success         %8.2f s after the process started\n", startSecs);
    std::printf("  every 601 at agent    %8.2f s after the process started (%.2f s after start success)\n",
                reportSecs, reportSecs - startSecs);
    std::printf("  CPU until then        %8.2f s in all threads, %.2f s on the application thread "
                "(%.1f us per plan)\n",
                cpuSecs, mainCpuSecs, 1e6 * mainCpuSecs / plans);
    if (probe) {
        const std::vector<double> latencies = probe->LatenciesBetween(started, reported);
        if (latencies.empty()) {
            std::printf("  plan commands         none answered between start success and the last 601\n");
        } else {
            // Nearest rank: with few samples the p99 is the largest.
            const auto at = [&latencies](double p) {
                return latencies[static_cast<size_t>(std::ceil(p * static_cast<double>(latencies.size()))) -
                                 1];
            };
            std::printf("  plan commands meanwhile %d answered: p50 %.1f ms, p99 %.1f ms, max %.1f ms\n",
                        static_cast<int>(latencies.size()), at(0.5), at(0.99), latencies.back());
        }
        probe.reset();
    }

    // The agent's answers to the start-up reports are still being handled for
    // a while after the last report arrived.
    const double settleSecs = Settle(service);
    std::printf("  settled               %8.2f s after the last 601\n", settleSecs);
    const qint64 cpuBefore = service.CpuNanos();
    std::this_thread::sleep_for(std::chrono::seconds(options.idleSecs));
    const double idleCpu = static_cast<double>(service.CpuNanos() - cpuBefore) / 1e9;
    const qint64 resident = service.ResidentBytes();
    std::printf("  idle CPU over %d s     %8.3f %% of one core (%.3f s)\n", options.idleSecs,
                100.0 * idleCpu / options.idleSecs, idleCpu);
    std::printf("  resident              %8.1f MiB, %.0f bytes per plan\n",
                static_cast<double>(resident) / (1024 * 1024), static_cast<double>(resident) / plans);

    int exitCode = -1;
    const double stopSecs = service.Terminate(options.timeoutSecs, exitCode);
    std::printf("  stop after SIGTERM    %8s (exit code %d)\n", qPrintable(Figure(stopSecs)), exitCode);
    std::fflush(stdout);
    const bool stopped = stopSecs >= 0 && exitCode == 0;
    return stopped && (!options.restart || Restart(options, dir.path(), agent));
}

Options Parse(const QCoreApplication& app) {
    QCommandLineParser parser;
    parser.setApplicationDescription("Runs the service executable with generated plan databases and prints "
                                     "start-up, report, idle, memory and stop figures.");
    parser.addHelpOption();
    const QCommandLineOption plans("plans", "Plan counts, comma-separated.", "list", "10000,100000");
    const QCommandLineOption modes("modes", "Firing modes: poll, timer or both.", "list", "poll,timer");
    const QCommandLineOption idle("idle", "Seconds of idle CPU measurement.", "seconds", "60");
    const QCommandLineOption quiet("quiet-minutes",
                                   "Minutes from now in which no plan is due (covers the idle measurement).",
                                   "minutes", "90");
    const QCommandLineOption timeout("timeout", "Seconds a start-up or stop may take at most.", "seconds",
                                     "900");
    const QCommandLineOption seed("seed", "Seed of the plan generator.", "number", "1");
    const QCommandLineOption noCommands("no-commands", "Send no plan commands during start-up.");
    const QCommandLineOption keep("keep", "Keep each run's folder (its log and database) and print where.");
    const QCommandLineOption executable("executable", "The service executable.", "path",
                                        QCoreApplication::applicationDirPath() + "/OrvelSchedulerService");
    const QCommandLineOption restart("restart",
                                     "After the stop, start the service again on the run state it wrote and "
                                     "print that start-up's figures.");
    parser.addOptions({plans, modes, idle, quiet, timeout, seed, noCommands, keep, restart, executable});
    parser.process(app);
    Options options;
    for (const QString& count : parser.value(plans).split(',', Qt::SkipEmptyParts)) {
        options.plans << count.toInt();
    }
    options.modes = parser.value(modes).split(',', Qt::SkipEmptyParts);
    options.idleSecs = parser.value(idle).toInt();
    options.quietMinutes = parser.value(quiet).toInt();
    options.timeoutSecs = parser.value(timeout).toInt();
    options.seed = parser.value(seed).toUInt();
    options.commands = !parser.isSet(noCommands);
    options.keep = parser.isSet(keep);
    options.restart = parser.isSet(restart);
    options.executable = parser.value(executable);
    return options;
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const Options options = Parse(app);
    bool ok = true;
    for (const QString& mode : options.modes) {
        for (int plans : options.plans) {
            ok = RunOne(options, plans, mode) && ok;
        }
    }
    return ok ? 0 : 1;
}
