// CPU time of an idle service: the task scheduler with N stored plans that do
// not come due, run for S seconds after start-up has settled.
// Usage: idle_cpu_bench [seconds=60] [plans=100000] [mode=poll|timer]
#include "BenchSupport.h"
#include "ReservedPort.h"

#include "framework/Clock.h"

#include "scheduler/TaskScheduler.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/resource.h>

#include <cstdio>

namespace {
double CpuSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// No agent listens on the reserved port: the reports wait in the link's buffer.
void WriteConfig(const QString& path, quint16 agentPort, bool timerMode) {
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(QString("[Communication]\nSchedulerPort=0\nAgentPort=%1\n[Scheduler]\nDateTimeFireType=%2\n")
                   .arg(agentPort)
                   .arg(timerMode ? 1 : 0)
                   .toUtf8());
}
} // namespace

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int seconds = arguments.value(1, "60").toInt();
    const int plans = arguments.value(2, "100000").toInt();
    const bool timerMode = arguments.value(3, "poll") == "timer";
    QTemporaryDir dir;
    QDir(dir.path()).mkpath("cfg");
    QDir(dir.path()).mkpath("data");
    ReservedPort agentPort;
    WriteConfig(dir.filePath("cfg/config.ini"), agentPort.port(), timerMode);
    BenchSupport::StorePlans(dir.filePath("data/alldb.db"), plans);

    TaskScheduler scheduler(nullptr);
    QElapsedTimer startup;
    startup.start();
    if (!scheduler.Init(dir.path() + "/") || !scheduler.Start()) {
        std::fprintf(stderr, "the scheduler did not start\n");
        return 1;
    }
    // Let the first poll (or the arming) and the reports settle first.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 3000) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    }
    const double before = CpuSeconds();
    QTimer::singleShot(seconds * 1000, &app, &QCoreApplication::quit);
    QCoreApplication::exec();
    const double used = CpuSeconds() - before;
    std::printf("%s mode, %d plans, %d s idle: %.3f s CPU = %.3f%% of one core (resident %.1f MiB)\n",
                timerMode ? "timer" : "polling", plans, seconds, used, 100.0 * used / seconds,
                static_cast<double>(BenchSupport::ResidentBytes()) / (1024 * 1024));
    scheduler.Stop();
    scheduler.UnInit();
    return 0;
}
