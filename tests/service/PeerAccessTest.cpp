// Only the configured users and groups may change the schedule: a delete sent
// by another local user is answered 1, logged once and changes nothing.
#include "support/ServiceProcess.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {
// The result codes plan_client printed, one per command.
QStringList DeleteAs(const QStringList& identity, quint16 port, const QString& plan, int count) {
    QProcess client;
    client.start("setpriv", identity + QStringList{"--", QString(ORVEL_BIN_DIR) + "/plan_client",
                                                   QString::number(port), plan, QString::number(count)});
    if (!client.waitForFinished(30000) || client.exitCode() != 0) {
        return {"client failed: " + QString::fromUtf8(client.readAllStandardError())};
    }
    return QString::fromUtf8(client.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
}

int CountContaining(const QStringList& lines, const QString& text) {
    int count = 0;
    for (const QString& line : lines) {
        count += line.contains(text) ? 1 : 0;
    }
    return count;
}

TEST(PeerAccess, AnotherUserIsRefusedOnceAndRootIsServed) {
    if (::geteuid() != 0 || QStandardPaths::findExecutable("setpriv").isEmpty()) {
        GTEST_SKIP() << "needs root and setpriv to act as another user";
    }
    ServiceFolder folder;
    folder.StorePlan("kept", 2, "2026-01-01 02:00:00");
    ServiceProcess service(folder);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 10000));
    const quint16 port = service.WaitForCommandPort();
    ASSERT_NE(port, 0);

    const QStringList nobody{"--reuid=nobody", "--regid=nogroup", "--clear-groups"};
    EXPECT_EQ(DeleteAs(nobody, port, "kept", 2), (QStringList{"1", "1"}));
    const QStringList afterRefusal = service.LogLines();
    EXPECT_EQ(CountContaining(afterRefusal, "] WARN  Refused command 203 from user id 65534"), 1);
    EXPECT_EQ(CountContaining(afterRefusal, "Server deal with request command"), 0);

    // The plan is still scheduled: root's delete finds it.
    EXPECT_EQ(DeleteAs({"--reuid=root"}, port, "kept", 1), (QStringList{"0"}));
    // Info lines reach the file a moment after the answer.
    EXPECT_TRUE(service.WaitForLog("Plan command 203 for plan kept from user id 0 accepted.", 10000));
    EXPECT_EQ(CountContaining(service.LogLines(), "Plan command 203 for plan kept from user id 0 accepted."),
              1);
}
} // namespace
