// orvelctl status over the run state of a large service, measured as its
// users run it: the real orvelctl from process start to exit, over a state
// file that the service's own store wrote for N plans with random times of
// day, mixed trigger types, results and ended plans. Also the file's size per
// plan. Usage: status_bench [plans] [state file to keep]
#include "BenchSupport.h"

#include "framework/Clock.h"
#include "store/RunStateStore.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <random>
#include <sys/resource.h>

namespace {
const quint64 kTypes[] = {1, 2, 2, 2, 3, 3, 4, 257, 259};

void WriteState(const QString& path, int plans) {
    std::mt19937 random(7);
    const QDateTime now = Clock::now();
    RunStateStore store;
    store.Open(path, {});
    for (int i = 0; i < plans; ++i) {
        const QString plan =
            QString("%1-4c1d-8e2f-9a0b-%2").arg(random(), 8, 16, QChar('0')).arg(i, 12, 10, QChar('0'));
        const quint64 type = kTypes[random() % (sizeof(kTypes) / sizeof(kTypes[0]))];
        const bool event = type > 4;
        const bool ended = type == 1 && random() % 2 == 0;
        const qint64 dayMSecs = static_cast<qint64>(random() % 86400) * 1000;
        const QDateTime next = now.addMSecs(dayMSecs + static_cast<qint64>(random() % 7) * 86400000);
        const QString nextText = event || ended ? QString() : next.toString("yyyy-MM-dd hh:mm:ss");
        store.RecordSchedule(plan, type, nextText, ended ? 1 : 0);
        if (random() % 10 != 0) {
            const QDateTime last = now.addMSecs(-dayMSecs);
            store.RecordRun(plan, type, last.toString("yyyy-MM-dd hh:mm:ss"), last.toMSecsSinceEpoch());
            store.RecordResult(plan, random() % 20 == 0 ? 1 : 0, last.toMSecsSinceEpoch() + 60000);
        }
    }
    store.Close();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int plans = argc > 1 ? QString(argv[1]).toInt() : 100000;
    QTemporaryDir dir;
    const QString path = argc > 2 ? QString(argv[2]) : dir.filePath("state.db");
    WriteState(path, plans);
    std::printf("plans: %d, state file: %lld bytes, %.0f bytes per plan\n", plans, QFileInfo(path).size(),
                static_cast<double>(QFileInfo(path).size()) / plans);
    const QStringList base = {"status", "--state", path, "--port", "1"};
    for (const QStringList& extra : {QStringList{}, QStringList{"--json"}}) {
        for (int run = 0; run < 3; ++run) {
            qint64 bytes = 0;
            double cpu = 0;
            const double seconds = BenchSupport::RunOrvelctl(base + extra, bytes, cpu);
            std::printf("orvelctl status %s: %.2f s wall, %.2f s CPU (%lld bytes of output)\n",
                        qPrintable(extra.join(' ')), seconds, cpu, bytes);
        }
    }
    return 0;
}
