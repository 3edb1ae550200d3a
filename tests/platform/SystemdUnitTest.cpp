// The unit written for an executable outside the package.
#include "platform/SystemdUnit.h"
#include "support/ServiceProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
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

TEST(SystemdUnit, OnlyALinkToDevNullIsMasked) {
    QTemporaryDir root;
    const QDir dir(root.path());
    QFile regular(dir.filePath("regular.service"));
    ASSERT_TRUE(regular.open(QIODevice::WriteOnly));
    regular.close();
    QFile::link("/dev/null", dir.filePath("masked.service"));
    QFile::link(dir.filePath("masked.service"), dir.filePath("chained.service"));
    QFile::link(dir.filePath("regular.service"), dir.filePath("linked.service"));
    const QMap<QString, bool> masked = {{"regular.service", false},
                                        {"missing.service", false},
                                        {"linked.service", false},
                                        {"masked.service", true},
                                        {"chained.service", true}};
    for (auto it = masked.begin(); it != masked.end(); ++it) {
        EXPECT_EQ(SystemdUnit::IsMasked(dir.filePath(it.key())), it.value()) << it.key().toStdString();
    }
}

// A removed but unpurged package leaves the unit masked; writing through the
// link would change nothing, so -i says how to unmask and leaves it alone.
TEST(SystemdUnit, InstallRefusesAMaskedUnit) {
    ServiceFolder folder;
    ASSERT_TRUE(QDir().mkpath(folder.Path("units")));
    const QString unit = folder.Path("units/OrvelSchedulerService.service");
    ASSERT_TRUE(QFile::link("/dev/null", unit));
    ServiceProcess install(folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ORVEL_SYSTEMD_UNIT_DIR", folder.Path("units"));
    environment.insert("PATH", "/nonexistent");
    install.process().setProcessEnvironment(environment);
    ASSERT_TRUE(install.Start({"-i"}));
    ASSERT_TRUE(install.WaitForExit());
    EXPECT_NE(install.process().exitCode(), 0);
    EXPECT_EQ(install.process().readAllStandardOutput(), QByteArray());
    EXPECT_EQ(QString::fromUtf8(install.process().readAllStandardError()),
              QString("OrvelSchedulerService is masked (%1 links to /dev/null): unmask it with 'systemctl "
                      "unmask OrvelSchedulerService', then run -i again.\n")
                  .arg(unit));
    EXPECT_EQ(QFileInfo(unit).symLinkTarget(), "/dev/null");
}
} // namespace
