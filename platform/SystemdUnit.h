#pragma once

#include <QString>

// The systemd unit of the service: Type=notify, restarted on failure with a
// growing pause, stopped at shut-down (systemd's default dependencies).
class SystemdUnit {
public:
    static QString Render(const QString& description, const QString& executable, bool autoStart);
    // Where units are written: /etc/systemd/system, or ORVEL_SYSTEMD_UNIT_DIR.
    static QString UnitDirectory();
    static QString UnitPath(const QString& serviceName);
};
