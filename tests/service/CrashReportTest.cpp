// Crash reports: from the service's main thread (a signal from outside) and
// from its worker threads (a null pointer, a stack overflow), each ending the
// process by its signal.
#include "support/ServiceProcess.h"

#include "framework/Clock.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>

namespace {
struct CrashCase {
    const char* name;
    const char* program;
    const char* argument;
    // Sent from outside once the service runs; 0: the helper crashes itself.
    int sentSignal;
    int expectedSignal;
    // A function the symbolized backtrace names, or nullptr.
    const char* function;
};

void PrintTo(const CrashCase& crash, std::ostream* out) {
    *out << crash.name;
}

class CrashReport : public ::testing::TestWithParam<CrashCase> {};

QString ReadDump(const ServiceFolder& folder) {
    const QStringList dumps = QDir(folder.Path("dump")).entryList({"schedulerservice*.dmp"});
    if (dumps.size() != 1 ||
        !QRegularExpression(R"(^schedulerservice\d{14}\.dmp$)").match(dumps.first()).hasMatch()) {
        return QString("unexpected dumps: %1").arg(dumps.join(' '));
    }
    QFile dump(folder.Path("dump/" + dumps.first()));
    dump.open(QIODevice::ReadOnly);
    return QString::fromUtf8(dump.readAll());
}

TEST_P(CrashReport, LeavesAReportAndEndsByTheSignal) {
    const CrashCase& crash = GetParam();
    ServiceFolder folder;
    ServiceProcess process(folder, crash.program);
    ASSERT_TRUE(process.Start(crash.argument[0] != 0 ? QStringList{crash.argument} : QStringList{}));
    if (crash.sentSignal != 0) {
        ASSERT_TRUE(process.WaitForLog("SchedulerService start success.", 10000));
        process.Signal(crash.sentSignal);
    }
    const qint64 pid = process.process().processId();
    ASSERT_TRUE(process.WaitForExit(30000));
    EXPECT_EQ(process.process().exitStatus(), QProcess::CrashExit);
    EXPECT_EQ(process.process().exitCode(), crash.expectedSignal);

    const QString text = ReadDump(folder);
    EXPECT_TRUE(text.startsWith("OrvelSchedulerService crash report\n")) << text.left(300).toStdString();
    EXPECT_TRUE(text.contains(QString("signal: %1 (").arg(crash.expectedSignal)));
    const QRegularExpressionMatch thread = QRegularExpression(R"(thread id: (\d+))").match(text);
    ASSERT_TRUE(thread.hasMatch());
    // The helpers crash on a worker. A signal sent from outside goes to the
    // process, and the kernel may hand it to any thread that does not block it.
    if (crash.sentSignal == 0) {
        EXPECT_NE(thread.captured(1).toLongLong(), pid);
    }
    EXPECT_TRUE(text.contains(QRegularExpression(R"(\n#00 0x[0-9a-f]+\n)")));
    EXPECT_TRUE(text.contains("/proc/self/maps:"));
    EXPECT_TRUE(text.contains("symbolized backtrace:"));
    if (crash.function != nullptr) {
        EXPECT_TRUE(text.contains(crash.function)) << text.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Crashes, CrashReport,
    ::testing::Values(CrashCase{"ServiceSegv", "OrvelSchedulerService", "", SIGSEGV, SIGSEGV, nullptr},
                      CrashCase{"ServiceAbort", "OrvelSchedulerService", "", SIGABRT, SIGABRT, nullptr},
                      CrashCase{"WorkerNullPointer", "crash_helper", "null", 0, SIGSEGV, "DereferenceNull"},
                      CrashCase{"WorkerStackOverflow", "crash_helper", "overflow", 0, SIGSEGV, "Recurse"}),
    [](const ::testing::TestParamInfo<CrashCase>& info) { return std::string(info.param.name); });

// A report that cannot be written in time (here its file is a FIFO nobody
// reads, so opening it blocks) still ends the process by its signal, through
// the watchdog.
TEST(CrashReport, EndsByTheSignalWhenTheReportBlocks) {
    ServiceFolder folder;
    QDir(folder.Dir()).mkpath("dump");
    const QDateTime now = Clock::now();
    for (int second = 0; second < 60; ++second) {
        const QString stamp = now.addSecs(second).toString("yyyyMMddhhmmss");
        ASSERT_EQ(::mkfifo(folder.Path("dump/schedulerservice" + stamp + ".dmp").toLocal8Bit(), 0600), 0);
    }
    ServiceProcess process(folder, "crash_helper");
    QElapsedTimer elapsed;
    elapsed.start();
    ASSERT_TRUE(process.Start());
    ASSERT_TRUE(process.WaitForExit(30000));
    EXPECT_EQ(process.process().exitStatus(), QProcess::CrashExit);
    EXPECT_EQ(process.process().exitCode(), SIGSEGV);
    EXPECT_GE(elapsed.elapsed(), 4000);
}
} // namespace
