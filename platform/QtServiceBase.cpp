#include "QtServiceBase.h"

#include "LogindSessionWatcher.h"
#include "SignalBridge.h"
#include "SystemdUnit.h"

#include "timing/DeadlineQueue.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstdio>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
void Print(FILE* stream, const QString& text) {
    std::fputs(text.toLocal8Bit().constData(), stream);
}

bool CreateSystemUser(const QString& user) {
    if (::geteuid() != 0 || QStandardPaths::findExecutable("adduser").isEmpty()) {
        return false;
    }
    return QProcess::execute("adduser", {"--system", "--group", "--quiet", "--no-create-home", "--home",
                                         "/nonexistent", user}) == 0;
}

// The unit runs the service as its own user, which must exist and own the
// folders the service writes.
void PrepareServiceAccount(const QString& directory) {
    const QString user = SystemdUnit::ServiceUser();
    const QStringList folders = SystemdUnit::WritableFolders(directory);
    const QByteArray name = user.toLocal8Bit();
    if (::getpwnam(name.constData()) == nullptr && !CreateSystemUser(user)) {
        Print(stdout,
              QString("The unit runs the service as %1, which does not exist here: create it (adduser "
                      "--system --group %1) and give it %2.\n")
                  .arg(user, folders.join(", ")));
        return;
    }
    const passwd* account = ::getpwnam(name.constData());
    for (const QString& folder : folders) {
        QDir().mkpath(folder);
        const QByteArray path = folder.toLocal8Bit();
        if (::chown(path.constData(), account->pw_uid, account->pw_gid) != 0 ||
            ::chmod(path.constData(), 0750) != 0) {
            Print(stdout, QString("Cannot give %1 to %2: %3\n").arg(folder, user, qt_error_string(errno)));
        }
    }
}

bool RunSystemctl(const QStringList& arguments) {
    if (QStandardPaths::findExecutable("systemctl").isEmpty()) {
        return false;
    }
    return QProcess::execute("systemctl", arguments) == 0;
}
} // namespace

QtServiceBase::QtServiceBase(int argc, char** argv, const QString& name)
    : m_argc(argc), m_argv(argv), m_name(name) {}

QtServiceBase::~QtServiceBase() = default;

QString QtServiceBase::usage(const QString& program) {
    return QString("Usage: %1 [option]\n"
                   "  (none), -e, --exec   run the service in the foreground (how systemd starts it)\n"
                   "  -i, --install        write and enable the systemd unit for this executable\n"
                   "  -u, --uninstall      disable and remove the systemd unit\n"
                   "  -v, --version        print the name and version\n"
                   "  -h, --help           print this help\n")
        .arg(program);
}

int QtServiceBase::exec() {
    const QString program = m_argc > 0 ? QFileInfo(QString::fromLocal8Bit(m_argv[0])).fileName() : m_name;
    const QString option = m_argc > 1 ? QString::fromLocal8Bit(m_argv[1]) : QString();
    if (m_argc > 2) {
        Print(stderr, usage(program));
        return 2;
    }
    if (option.isEmpty() || option == "-e" || option == "--exec") {
        return RunForeground();
    }
    if (option == "-i" || option == "--install") {
        return Install();
    }
    if (option == "-u" || option == "--uninstall") {
        return Uninstall();
    }
    if (option == "-v" || option == "--version") {
        Print(stdout, QString("%1 %2\n").arg(m_name, ORVEL_VERSION));
        return 0;
    }
    if (option == "-h" || option == "--help") {
        Print(stdout, usage(program));
        return 0;
    }
    Print(stderr, QString("%1: unknown option '%2'\n").arg(program, option) + usage(program));
    return 2;
}

void QtServiceBase::NotifyStatus(const QString& line) {
    sd_notifyf(0, "STATUS=%s", line.simplified().toUtf8().constData());
}

void QtServiceBase::StopOnce() {
    if (m_stopped) {
        return;
    }
    m_stopped = true;
    sd_notify(0, "STOPPING=1");
    stop();
}

int QtServiceBase::RunForeground() {
    createApplication(m_argc, m_argv);
    SignalBridge bridge([this](int) {
        StopOnce();
        QCoreApplication::quit();
    });
    start();
    LogindSessionWatcher* watcher = LogindSessionWatcher::OnSystemBus(
        [this](int event, qint64 sessionId) { sessionChange(static_cast<LogonEvent>(event), sessionId); });
    // The monotonic waits of the timers stood still while the machine slept.
    QObject::connect(watcher, &LogindSessionWatcher::resumed, &DeadlineQueue::ForCurrentThread(),
                     &DeadlineQueue::Recheck);
    NotifyStarted();
    executeApplication();
    delete watcher;
    StopOnce();
    return 0;
}

void QtServiceBase::reportStartFailure(const QString& status) {
    m_startFailed = true;
    m_startFailure = status.isEmpty() ? QString("The service could not start.") : status;
}

void QtServiceBase::NotifyStarted() {
    if (!m_startFailed) {
        sd_notify(0, "READY=1");
        return;
    }
    NotifyStatus(m_startFailure);
}

int QtServiceBase::Install() {
    const QString executable = QFileInfo(QString::fromLocal8Bit(m_argv[0])).absoluteFilePath();
    const QString path = SystemdUnit::UnitPath(m_name);
    if (SystemdUnit::IsMasked(path)) {
        Print(stderr, QString("%1 is masked (%2 links to /dev/null): unmask it with 'systemctl unmask %1', "
                              "then run -i again.\n")
                          .arg(m_name, path));
        return 1;
    }
    QDir().mkpath(SystemdUnit::UnitDirectory());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        Print(stderr, QString("Cannot write %1: %2\n").arg(path, file.errorString()));
        return 1;
    }
    file.write(SystemdUnit::Render(m_description, executable, m_startupType == AutoStartup).toUtf8());
    file.close();
    Print(stdout, QString("Wrote %1\n").arg(path));
    PrepareServiceAccount(QFileInfo(executable).absolutePath());
    if (!RunSystemctl({"daemon-reload"})) {
        Print(stdout, "systemd is not running here; enable the unit once it is.\n");
        return 0;
    }
    if (m_startupType == AutoStartup) {
        RunSystemctl({"enable", m_name + ".service"});
    }
    return 0;
}

int QtServiceBase::Uninstall() {
    const QString path = SystemdUnit::UnitPath(m_name);
    if (!QFile::exists(path)) {
        Print(stderr, QString("%1 is not installed (%2 does not exist).\n").arg(m_name, path));
        return 1;
    }
    RunSystemctl({"disable", "--now", m_name + ".service"});
    if (!QFile::remove(path)) {
        Print(stderr, QString("Cannot remove %1\n").arg(path));
        return 1;
    }
    RunSystemctl({"daemon-reload"});
    Print(stdout, QString("Removed %1\n").arg(path));
    return 0;
}

void QtServiceBase::stop() {}

void QtServiceBase::pause() {}

void QtServiceBase::resume() {}

void QtServiceBase::processCommand(int) {}

void QtServiceBase::sessionChange(LogonEvent, qint64) {}
