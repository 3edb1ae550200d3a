#include "SystemdUnit.h"

#include "PackagedUnit.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace {
const QStringList kWritableFolders = {"data", "log", "dump"};

// The value of the first "key=" line of the packaged unit.
QString PackagedValue(const QString& key) {
    for (const QString& line : QString(kPackagedUnit).split('\n')) {
        if (line.startsWith(key + "=")) {
            return line.mid(key.size() + 1);
        }
    }
    return QString();
}

bool IsInside(const QString& path, const QString& folder) {
    return path.startsWith(folder + "/");
}

// ProtectHome=yes hides these completely, and ReadWritePaths cannot reopen
// them; an executable there gets them read-only instead.
// The paths of a ReadWritePaths line that only count where they exist
// ("-/path"): folders of other packages, such as the node exporter's, which
// stay the same wherever the service is installed.
QStringList OptionalPaths(const QString& line) {
    return line.section('=', 1).split(' ', Qt::SkipEmptyParts).filter(QRegularExpression("^-"));
}

bool IsUnderHome(const QString& directory) {
    return IsInside(directory, "/home") || IsInside(directory, "/root") || IsInside(directory, "/run/user");
}
} // namespace

QStringList SystemdUnit::WritableFolders(const QString& directory) {
    QStringList folders;
    for (const QString& name : kWritableFolders) {
        const QFileInfo info(QDir(directory).filePath(name));
        const QString real = info.exists() ? info.canonicalFilePath() : info.absoluteFilePath();
        if (!folders.contains(real)) {
            folders << real;
        }
    }
    QStringList outermost;
    for (const QString& folder : folders) {
        const bool nested = std::any_of(folders.begin(), folders.end(),
                                        [&folder](const QString& other) { return IsInside(folder, other); });
        if (!nested) {
            outermost << folder;
        }
    }
    return outermost;
}

QString SystemdUnit::Render(const QString& description, const QString& executable, bool autoStart) {
    const QString directory = QFileInfo(executable).absolutePath();
    QStringList lines;
    for (const QString& line : QString(kPackagedUnit).split('\n')) {
        if (line == "[Install]" && !autoStart) {
            break;
        }
        if (line.startsWith("Description=")) {
            lines << "Description=" + description;
        } else if (line.startsWith("ExecStart=")) {
            lines << QString("ExecStart=%1 -e").arg(executable);
        } else if (line.startsWith("WorkingDirectory=")) {
            lines << "WorkingDirectory=" + directory;
        } else if (line == "ProtectHome=yes" && IsUnderHome(directory)) {
            lines << "ProtectHome=read-only";
        } else if (line.startsWith("ReadWritePaths=")) {
            lines << "ReadWritePaths=" + (WritableFolders(directory) + OptionalPaths(line)).join(' ');
        } else {
            lines << line;
        }
    }
    while (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines.join('\n') + '\n';
}

QString SystemdUnit::ServiceUser() {
    return PackagedValue("User");
}

QString SystemdUnit::UnitDirectory() {
    const QString overridden = qEnvironmentVariable("ORVEL_SYSTEMD_UNIT_DIR");
    return overridden.isEmpty() ? QString("/etc/systemd/system") : overridden;
}

QString SystemdUnit::UnitPath(const QString& serviceName) {
    return QString("%1/%2.service").arg(UnitDirectory(), serviceName);
}

bool SystemdUnit::IsMasked(const QString& unitPath) {
    return QFileInfo(unitPath).canonicalFilePath() == "/dev/null";
}
