// Plan command round trips over loopback against the command server of an
// in-process task scheduler, with 1 and 16 clients, one request at a time and
// pipelined. Each request is a modify-plan command (204) for an event trigger,
// so it goes the whole road: server, queue, dealing thread, store, fire table,
// reply. The log is written to a file as in production.
// Usage: round_trip_bench [requests per client = 4000]
#include "BenchClient.h"
#include "BenchSupport.h"
#include "ReservedPort.h"

#include "framework/Clock.h"
#include "framework/Logger.h"
#include "scheduler/TaskScheduler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <thread>
#include <vector>

namespace {
using Steady = std::chrono::steady_clock;

// Latencies in microseconds of every request of one client.
std::vector<double> RunClient(quint16 port, int client, int requests, int window) {
    BenchClient connection;
    connection.Connect(port);
    std::vector<QByteArray> frames;
    for (int i = 0; i < requests; ++i) {
        frames.push_back(BenchClient::ModifyFrame(QString("bench-%1-%2").arg(client).arg(i % 50)));
    }
    std::vector<double> latencies;
    std::deque<Steady::time_point> inFlight;
    int sent = 0;
    while (static_cast<int>(latencies.size()) < requests) {
        while (sent < requests && static_cast<int>(inFlight.size()) < window) {
            inFlight.push_back(Steady::now());
            connection.Send(frames[static_cast<size_t>(sent++)]);
        }
        connection.ReadReply();
        latencies.push_back(
            std::chrono::duration<double, std::micro>(Steady::now() - inFlight.front()).count());
        inFlight.pop_front();
    }
    return latencies;
}

void Measure(quint16 port, int clients, int requests, int window) {
    std::vector<std::vector<double>> results(static_cast<size_t>(clients));
    std::atomic<int> done{0};
    const auto start = Steady::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            results[static_cast<size_t>(c)] = RunClient(port, c, requests, window);
            if (++done == clients) {
                QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
            }
        });
    }
    QCoreApplication::exec();
    const double seconds = std::chrono::duration<double>(Steady::now() - start).count();
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<double> all;
    for (const auto& r : results) {
        all.insert(all.end(), r.begin(), r.end());
    }
    std::sort(all.begin(), all.end());
    const auto percentile = [&all](double p) {
        return all[static_cast<size_t>(p * static_cast<double>(all.size() - 1))];
    };
    std::printf("%2d client(s), %-13s %8.0f round trips/s   p50 %7.3f ms   p99 %7.3f ms\n", clients,
                window == 1 ? "one at a time" : "pipelined", static_cast<double>(all.size()) / seconds,
                percentile(0.5) / 1000, percentile(0.99) / 1000);
}

} // namespace

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    QCoreApplication app(argc, argv);
    const int requests = app.arguments().value(1, "4000").toInt();
    QTemporaryDir dir;
    QDir(dir.path()).mkpath("cfg");
    ReservedPort agentPort;
    QFile config(dir.filePath("cfg/config.ini"));
    config.open(QIODevice::WriteOnly);
    config.write(QString("[Communication]\nSchedulerPort=0\nAgentPort=%1\n").arg(agentPort.port()).toUtf8());
    config.close();
    Logger::Initialize(dir.path() + "/", "log", "schedulerservice.log");
    TaskScheduler scheduler(nullptr);
    if (!scheduler.Init(dir.path() + "/") || !scheduler.Start()) {
        std::fprintf(stderr, "the scheduler did not start\n");
        return 1;
    }
    const quint16 port = scheduler.commandServerPort();
    for (int clients : {1, 16}) {
        Measure(port, clients, requests, 1);
        Measure(port, clients, requests, 32);
    }
    scheduler.Stop();
    scheduler.UnInit();
    Logger::UnInitialize();
    return 0;
}
