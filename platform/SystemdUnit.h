#pragma once

#include <QString>
#include <QStringList>

// The systemd unit of the service: the packaged unit (Type=notify, its own
// user, hardened), with the paths of an executable installed elsewhere.
class SystemdUnit {
public:
    static QString Render(const QString& description, const QString& executable, bool autoStart);
    // The folders beside the executable that the service writes (data/, log/,
    // dump/), as the real paths they lead to; one inside another is left out.
    static QStringList WritableFolders(const QString& directory);
    // The unit's User= (its group has the same name).
    static QString ServiceUser();
    // Where units are written: /etc/systemd/system, or ORVEL_SYSTEMD_UNIT_DIR.
    static QString UnitDirectory();
    static QString UnitPath(const QString& serviceName);
    // A unit linked to /dev/null is masked (a removed, unpurged package leaves
    // it so): systemd ignores whatever is written through the link.
    static bool IsMasked(const QString& unitPath);
};
