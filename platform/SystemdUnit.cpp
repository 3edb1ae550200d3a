#include "SystemdUnit.h"

#include <QFileInfo>

QString SystemdUnit::Render(const QString& description, const QString& executable, bool autoStart) {
    const QString directory = QFileInfo(executable).absolutePath();
    QString unit = QString("[Unit]\n"
                           "Description=%1\n"
                           "After=network-online.target dbus.service systemd-logind.service\n"
                           "StartLimitIntervalSec=600\n"
                           "StartLimitBurst=10\n"
                           "\n"
                           "[Service]\n"
                           "Type=notify\n"
                           "ExecStart=%2 -e\n"
                           "WorkingDirectory=%3\n"
                           "Restart=on-failure\n"
                           "RestartSec=10\n"
                           "TimeoutStopSec=30\n")
                       .arg(description, executable, directory);
    if (autoStart) {
        unit += "\n[Install]\nWantedBy=multi-user.target\n";
    }
    return unit;
}

QString SystemdUnit::UnitDirectory() {
    const QString overridden = qEnvironmentVariable("ORVEL_SYSTEMD_UNIT_DIR");
    return overridden.isEmpty() ? QString("/etc/systemd/system") : overridden;
}

QString SystemdUnit::UnitPath(const QString& serviceName) {
    return QString("%1/%2.service").arg(UnitDirectory(), serviceName);
}
