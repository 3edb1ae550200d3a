#pragma once

#include "ServiceFolder.h"

#include <QProcess>
#include <QStringList>

// The real service executable, copied into a throw-away folder and run there,
// so that its log, data and dumps land beside it as in production.
class ServiceProcess {
public:
    // program: an executable of the build's bin/ folder.
    explicit ServiceProcess(ServiceFolder& folder, const QString& program = "OrvelSchedulerService");
    ~ServiceProcess();

    bool Start(const QStringList& arguments = {});
    // The messages of log/schedulerservice.log, without time, thread and level.
    QStringList LogMessages() const;
    QStringList LogLines() const;
    bool WaitForLog(const QString& message, int timeoutMSecs);
    // The port the command server logged that it listens on; 0 when no such
    // line came in time.
    quint16 WaitForCommandPort(int timeoutMSecs = 10000);
    void Signal(int signal);
    bool WaitForExit(int timeoutMSecs = 10000);
    QProcess& process() { return m_process; }
    QString Executable() const;

private:
    ServiceFolder& m_folder;
    QString m_program;
    QProcess m_process;
};
