// The service executable as a user and systemd see it.
#include "support/ServiceProcess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

#include <csignal>

namespace {
const QString kRule(106, '=');
const QString kTitle = QString(45, ' ') + "SchedulerService start" + QString(46, ' ');

TEST(ServiceProcess, StartsWithTheBannerAndStopsOnSigterm) {
    ServiceFolder folder;
    ServiceProcess service(folder);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 10000));
    const QStringList messages = service.LogMessages();
    ASSERT_GE(messages.size(), 6);
    EXPECT_EQ(messages.mid(0, 4), (QStringList{kRule, kTitle, kRule, "Logger initial success."}));
    EXPECT_LT(messages.indexOf("SchedulerService initial success."),
              messages.indexOf("SchedulerService start success."));
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit());
    EXPECT_EQ(service.process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(service.process().exitCode(), 0);
    EXPECT_TRUE(service.LogMessages().contains("SchedulerService stop success."));
}

TEST(ServiceProcess, WithoutConfigurationItLogsOneErrorAndIdles) {
    ServiceFolder folder;
    folder.RemoveConfig();
    ServiceProcess service(folder);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("Failed to initialize the ConfigReader.", 10000));
    EXPECT_EQ(service.process().state(), QProcess::Running);
    // Idling means it still answers SIGTERM; the whole log is written by then.
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit());
    EXPECT_EQ(service.process().exitCode(), 0);
    int errors = 0;
    for (const QString& line : service.LogLines()) {
        errors += line.contains("] ERROR ") ? 1 : 0;
    }
    EXPECT_EQ(errors, 1);
    EXPECT_EQ(service.LogMessages().mid(0, 4),
              (QStringList{kRule, kTitle, kRule, "Logger initial success."}));
}

// Under systemd the lines also reach the journal, with their levels.
TEST(ServiceProcess, WritesToTheJournalUnderSystemd) {
    ServiceFolder folder;
    ServiceProcess service(folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("JOURNAL_STREAM", "8:12345");
    service.process().setProcessEnvironment(environment);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.WaitForLog("SchedulerService start success.", 10000));
    service.Signal(SIGTERM);
    ASSERT_TRUE(service.WaitForExit());
    const QString journal = QString::fromUtf8(service.process().readAllStandardError());
    EXPECT_TRUE(journal.contains("<6>SchedulerService start success.\n")) << journal.toStdString();
    EXPECT_TRUE(journal.contains("<6>SchedulerService stop success.\n"));
}

TEST(ServiceProcess, CommandLine) {
    ServiceFolder folder;
    ServiceProcess unknown(folder);
    ASSERT_TRUE(unknown.Start({"--frobnicate"}));
    ASSERT_TRUE(unknown.WaitForExit());
    EXPECT_EQ(unknown.process().exitCode(), 2);
    EXPECT_TRUE(unknown.process().readAllStandardError().contains("Usage:"));

    ServiceProcess version(folder);
    ASSERT_TRUE(version.Start({"-v"}));
    ASSERT_TRUE(version.WaitForExit());
    EXPECT_EQ(version.process().exitCode(), 0);
    EXPECT_TRUE(version.process().readAllStandardOutput().startsWith("OrvelSchedulerService "));
}

TEST(ServiceProcess, InstallsAndRemovesItsSystemdUnit) {
    ServiceFolder folder;
    ServiceProcess install(folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ORVEL_SYSTEMD_UNIT_DIR", folder.Path("units"));
    environment.insert("PATH", "/nonexistent");
    install.process().setProcessEnvironment(environment);
    ASSERT_TRUE(install.Start({"-i"}));
    ASSERT_TRUE(install.WaitForExit());
    EXPECT_EQ(install.process().exitCode(), 0);
    QFile unit(folder.Path("units/OrvelSchedulerService.service"));
    ASSERT_TRUE(unit.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(unit.readAll()).split('\n');
    // The packaged unit, hardening included, with this executable's paths.
    QFile packaged(QString(ORVEL_SOURCE_DIR) + "/packaging/OrvelSchedulerService.service");
    ASSERT_TRUE(packaged.open(QIODevice::ReadOnly));
    const QString directory = QFileInfo(install.Executable()).absolutePath();
    const QMap<QString, QString> paths = {
        {"ExecStart", install.Executable() + " -e"},
        {"WorkingDirectory", directory},
        {"ReadWritePaths", QStringList{directory + "/data", directory + "/log", directory + "/dump",
                                       "-/var/lib/prometheus/node-exporter"}
                               .join(' ')}};
    for (const QString& line : QString::fromUtf8(packaged.readAll()).split('\n')) {
        const QString key = line.section('=', 0, 0);
        const QString expected = paths.contains(key) ? key + "=" + paths.value(key) : line;
        EXPECT_TRUE(lines.contains(expected)) << expected.toStdString();
    }
    EXPECT_TRUE(lines.contains("Description=Scheduler service"));
    EXPECT_TRUE(lines.contains("WantedBy=multi-user.target"));

    if (!QStandardPaths::findExecutable("systemd-analyze").isEmpty()) {
        QProcess analyze;
        analyze.start("systemd-analyze",
                      {"security", "--offline=yes", folder.Path("units/OrvelSchedulerService.service")});
        ASSERT_TRUE(analyze.waitForFinished(20000));
        const QRegularExpressionMatch exposure =
            QRegularExpression(R"(Overall exposure level for \S+: ([0-9.]+))")
                .match(QString::fromUtf8(analyze.readAllStandardOutput()));
        ASSERT_TRUE(exposure.hasMatch());
        EXPECT_LE(exposure.captured(1).toDouble(), 2.0);
        QProcess verify;
        verify.start("systemd-analyze",
                     {"verify", "--man=no", folder.Path("units/OrvelSchedulerService.service")});
        ASSERT_TRUE(verify.waitForFinished(20000));
        EXPECT_EQ(verify.exitCode(), 0) << verify.readAllStandardError().toStdString();
    }

    ServiceProcess uninstall(folder);
    uninstall.process().setProcessEnvironment(environment);
    ASSERT_TRUE(uninstall.Start({"-u"}));
    ASSERT_TRUE(uninstall.WaitForExit());
    EXPECT_EQ(uninstall.process().exitCode(), 0);
    EXPECT_FALSE(QFile::exists(folder.Path("units/OrvelSchedulerService.service")));
}
} // namespace
