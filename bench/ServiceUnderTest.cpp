#include "ServiceUnderTest.h"

#include "framework/Clock.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {
using Steady = std::chrono::steady_clock;

// "2026-03-10 08:00:00.123 [thread] LEVEL message"
qint64 LineTimeMSecs(const QByteArray& line) {
    const QDateTime stamp =
        QDateTime::fromString(QString::fromLatin1(line.left(23)), "yyyy-MM-dd hh:mm:ss.zzz");
    return stamp.isValid() ? stamp.toMSecsSinceEpoch() : 0;
}
quint64 InodeOf(const QString& path) {
    struct stat info = {};
    return ::stat(path.toLocal8Bit().constData(), &info) == 0 ? static_cast<quint64>(info.st_ino) : 0;
}
} // namespace

ServiceUnderTest::ServiceUnderTest(const QString& folder) : m_folder(folder) {}

ServiceUnderTest::~ServiceUnderTest() {
    if (m_pid > 0 && !HasExited()) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

bool ServiceUnderTest::Spawn(const QString& executable) {
    const QString copy = m_folder + "/OrvelSchedulerService";
    QFile::remove(copy);
    if (!QFile::copy(executable, copy)) {
        return false;
    }
    const QByteArray path = copy.toLocal8Bit();
    char* argv[] = {const_cast<char*>(path.constData()), nullptr};
    m_spawnedAtMSecs = Clock::nowMSecsSinceEpoch();
    m_pid = ::fork();
    if (m_pid == 0) {
        // The service dies with this run, also when the run is interrupted.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::execv(path.constData(), argv);
        ::_exit(127);
    }
    return m_pid > 0;
}

bool ServiceUnderTest::HasExited() {
    if (m_pid <= 0) {
        return true;
    }
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_pid = 0;
        return true;
    }
    return false;
}

// The log rolls every few megabytes, which at a million plans is many times a
// second: what the scan had not read of the file before it rolled is read from
// its first rolled name, so that no line is missed.
QByteArray ServiceUnderTest::NewLogText() {
    const QString path = m_folder + "/log/schedulerservice.log";
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return QByteArray();
    }
    QByteArray text;
    const quint64 inode = InodeOf(path);
    if (inode != m_logInode) {
        QFile rolled(path + ".1");
        if (m_logInode != 0 && InodeOf(rolled.fileName()) == m_logInode && rolled.open(QIODevice::ReadOnly) &&
            rolled.seek(m_logOffset)) {
            text = rolled.readAll();
        }
        m_logInode = inode;
        m_logOffset = 0;
    }
    file.seek(m_logOffset);
    text += file.readAll();
    m_logOffset = file.pos();
    return text;
}

void ServiceUnderTest::ScanLog() {
    const QByteArray text = m_logTail + NewLogText();
    const int lastBreak = text.lastIndexOf('\n');
    m_logTail = text.mid(lastBreak + 1);
    if (m_commandPort == 0) {
        static const QRegularExpression listening(R"(The command server listens on \S+:(\d+)\.\n)");
        const QRegularExpressionMatch match = listening.match(QString::fromUtf8(text.left(lastBreak + 1)));
        m_commandPort = match.hasMatch() ? static_cast<quint16>(match.captured(1).toUInt()) : 0;
    }
    const int at = m_startSuccessMSecs < 0 ? text.indexOf(" SchedulerService start success.\n") : -1;
    if (at >= 0 && at < lastBreak) {
        m_startSuccessMSecs = LineTimeMSecs(text.mid(text.lastIndexOf('\n', at) + 1));
    }
}

qint64 ServiceUnderTest::CpuNanos() const {
    qint64 total = 0;
    const QString tasks = QString("/proc/%1/task").arg(m_pid);
    for (const QString& task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        total += TaskCpuNanos(task);
    }
    return total;
}

// The application thread's task id is the process id.
qint64 ServiceUnderTest::MainThreadCpuNanos() const {
    return TaskCpuNanos(QString::number(m_pid));
}

qint64 ServiceUnderTest::TaskCpuNanos(const QString& task) const {
    QFile stat(QString("/proc/%1/task/%2/schedstat").arg(m_pid).arg(task));
    return stat.open(QIODevice::ReadOnly) ? stat.readAll().split(' ').value(0).toLongLong() : 0;
}

qint64 ServiceUnderTest::ResidentBytes() const {
    QFile status(QString("/proc/%1/status").arg(m_pid));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            return line.mid(6).trimmed().split(' ').value(0).toLongLong() * 1024;
        }
    }
    return 0;
}

double ServiceUnderTest::Terminate(int timeoutSecs, int& exitCode) {
    exitCode = -1;
    if (m_pid <= 0) {
        return -1;
    }
    const auto start = Steady::now();
    ::kill(m_pid, SIGTERM);
    const auto deadline = start + std::chrono::seconds(timeoutSecs);
    int status = 0;
    while (::waitpid(m_pid, &status, WNOHANG) == 0) {
        if (Steady::now() > deadline) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
            m_pid = 0;
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_pid = 0;
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return std::chrono::duration<double>(Steady::now() - start).count();
}
