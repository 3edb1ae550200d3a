// The unit written for an executable outside the package.
#include "platform/SystemdUnit.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
TEST(SystemdUnit, WritableFoldersAreTheRealPlacesOutermostFirst) {
    QTemporaryDir root;
    const QDir dir(root.path());
    dir.mkpath("app");
    dir.mkpath("state/dump");
    dir.mkpath("logs");
    QFile::link(root.filePath("state"), root.filePath("app/data"));
    QFile::link(root.filePath("state/dump"), root.filePath("app/dump"));
    QFile::link(root.filePath("logs"), root.filePath("app/log"));
    const QString real = QDir(root.path()).canonicalPath();
    // dump/ lies inside data/, which is writable already.
    EXPECT_EQ(SystemdUnit::WritableFolders(root.filePath("app")),
              (QStringList{real + "/state", real + "/logs"}));
}

TEST(SystemdUnit, HomeFoldersStayReadableAndOnlyAutoStartIsInstalled) {
    const QString home = SystemdUnit::Render("d", "/home/alice/orvel/OrvelSchedulerService", true);
    EXPECT_TRUE(home.contains("\nProtectHome=read-only\n"));
    EXPECT_TRUE(home.contains("\nWantedBy=multi-user.target\n"));
    const QString system = SystemdUnit::Render("d", "/srv/orvel/OrvelSchedulerService", false);
    EXPECT_TRUE(system.contains("\nProtectHome=yes\n"));
    EXPECT_TRUE(system.contains("\nReadWritePaths=/srv/orvel/data /srv/orvel/log /srv/orvel/dump "
                                "-/var/lib/prometheus/node-exporter\n"));
    EXPECT_FALSE(system.contains("[Install]"));
    EXPECT_FALSE(system.contains("WantedBy"));
}
} // namespace
