// The service under the restrictions of its unit, as far as they can be had
// without systemd: another user, no new privileges, no capabilities, umask
// 0027, and a read-only file system except the folders of ReadWritePaths. Its
// readiness still reaches the notify socket, and a crash still leaves a
// report.
#include "support/NotifySocket.h"
#include "support/ServiceProcess.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr uid_t kNobody = 65534;

// What ProtectSystem=strict with ReadWritePaths does, in a mount namespace of
// the service's own; then the unit's user, privileges and umask.
const char* const kSandbox = R"(set -e
awk '{ print $2 }' /proc/self/mounts | while read -r mount; do
  case "$mount" in /proc*|/sys*|/dev*) ;; *) mount -o remount,bind,ro "$mount" 2> /dev/null || true ;; esac
done
for folder in data log dump; do
  mount --bind "$1/$folder" "$1/$folder"
  mount -o remount,bind,rw "$1/$folder"
done
if touch "$1/cfg/probe" 2> /dev/null; then echo "the file system stayed writable" >&2; exit 97; fi
cd "$1"
exec setpriv --reuid=nobody --regid=nogroup --clear-groups --no-new-privs --bounding-set=-all \
  --inh-caps=-all -- sh -c 'umask 0027 && exec ./OrvelSchedulerService -e'
)";

bool CanSandbox() {
    return ::geteuid() == 0 && !QStandardPaths::findExecutable("setpriv").isEmpty() &&
           QProcess::execute("unshare", {"--mount", "true"}) == 0;
}

TEST(HardenedRun, ReadinessReachesSystemdAndACrashLeavesAReport) {
    if (!CanSandbox()) {
        GTEST_SKIP() << "needs root, setpriv and mount namespaces";
    }
    ServiceFolder folder;
    ServiceProcess service(folder);
    ::chmod(folder.Dir().toLocal8Bit().constData(), 0755);
    for (const char* name : {"data", "log", "dump"}) {
        QDir(folder.Dir()).mkpath(name);
        const QByteArray path = folder.Path(name).toLocal8Bit();
        ASSERT_EQ(::chown(path.constData(), kNobody, kNobody), 0);
        ::chmod(path.constData(), 0750);
    }
    NotifySocket notify(folder.Path("notify"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("NOTIFY_SOCKET", folder.Path("notify"));
    service.process().setProcessEnvironment(environment);
    service.process().setProgram("unshare");
    ASSERT_TRUE(service.Start(
        {"--mount", "--propagation", "private", "--", "sh", "-c", kSandbox, "sandbox", folder.Dir()}));

    ASSERT_TRUE(notify.WaitFor("READY=1")) << service.process().readAllStandardError().toStdString();
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 10000));

    service.Signal(SIGSEGV);
    ASSERT_TRUE(service.WaitForExit(30000));
    EXPECT_EQ(service.process().exitStatus(), QProcess::CrashExit);
    EXPECT_EQ(service.process().exitCode(), SIGSEGV);
    const QFileInfoList dumps = QDir(folder.Path("dump")).entryInfoList({"schedulerservice*.dmp"});
    ASSERT_EQ(dumps.size(), 1);
    EXPECT_EQ(dumps.first().ownerId(), kNobody);
    EXPECT_EQ(dumps.first().permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup),
              QFile::ReadGroup);
    QFile report(dumps.first().filePath());
    ASSERT_TRUE(report.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(report.readAll());
    EXPECT_TRUE(text.contains("signal: 11 (SIGSEGV)"));
    EXPECT_TRUE(text.contains("symbolized backtrace:"));
}
} // namespace
