#include "ServiceProcess.h"

#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include <csignal>

ServiceProcess::ServiceProcess(ServiceFolder& folder, const QString& program)
    : m_folder(folder), m_program(program) {
    QFile::copy(QString(ORVEL_BIN_DIR) + "/" + program, Executable());
    m_process.setProgram(Executable());
    m_process.setWorkingDirectory(folder.Dir());
}

ServiceProcess::~ServiceProcess() {
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString ServiceProcess::Executable() const {
    return m_folder.Path(m_program);
}

bool ServiceProcess::Start(const QStringList& arguments) {
    m_process.setArguments(arguments);
    m_process.start();
    return m_process.waitForStarted(5000);
}

QStringList ServiceProcess::LogLines() const {
    QFile file(m_folder.Path("log/schedulerservice.log"));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

QStringList ServiceProcess::LogMessages() const {
    // "2026-03-10 08:00:00.123 [thread] LEVEL message"
    static const QRegularExpression prefix(R"(^\S+ \S+ \[\d+\] \S+\s{1,2})");
    QStringList messages;
    for (QString line : LogLines()) {
        messages << line.remove(prefix);
    }
    return messages;
}

bool ServiceProcess::WaitForLog(const QString& message, int timeoutMSecs) {
    return QTest::qWaitFor([&] { return LogMessages().contains(message); }, timeoutMSecs);
}

quint16 ServiceProcess::WaitForCommandPort(int timeoutMSecs) {
    static const QRegularExpression listening(R"(^The command server listens on \S+:(\d+)\.$)");
    quint16 port = 0;
    [[maybe_unused]] const bool logged = QTest::qWaitFor(
        [&] {
            for (const QString& message : LogMessages()) {
                const QRegularExpressionMatch match = listening.match(message);
                if (match.hasMatch()) {
                    port = static_cast<quint16>(match.captured(1).toUInt());
                    return true;
                }
            }
            return false;
        },
        timeoutMSecs);
    return port;
}

void ServiceProcess::Signal(int signal) {
    ::kill(static_cast<pid_t>(m_process.processId()), signal);
}

bool ServiceProcess::WaitForExit(int timeoutMSecs) {
    return m_process.waitForFinished(timeoutMSecs);
}
