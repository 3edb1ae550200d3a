#pragma once

#include <QString>
#include <QStringList>

// Our service framework on Linux: parses the command line, runs the service in
// the foreground (as systemd starts it), turns SIGTERM/SIGINT into stop() on the
// application thread, tells systemd when it is ready and stopping, delivers
// logind session events, and installs or removes the systemd unit.
class QtServiceBase {
public:
    enum ServiceFlag {
        Default = 0x00,
        CanBeSuspended = 0x01,
        CannotBeStopped = 0x02,
        NeedsStopOnShutdown = 0x04
    };
    enum StartupType { AutoStartup = 0, ManualStartup = 1 };
    enum LogonEvent { Logon = 0, Logoff = 1, Lock = 2, Unlock = 3 };

    QtServiceBase(int argc, char** argv, const QString& name);
    virtual ~QtServiceBase();
    QtServiceBase(const QtServiceBase&) = delete;
    QtServiceBase& operator=(const QtServiceBase&) = delete;

    int exec();

    void setServiceDescription(const QString& description) { m_description = description; }
    // systemd stops every service at shut-down, which is all the flags ask of
    // the host here.
    void setServiceFlags(int) {}
    void setStartupType(StartupType type) { m_startupType = type; }

    static QString usage(const QString& program);
    // The one-line status that systemd shows beside the unit.
    static void NotifyStatus(const QString& line);

protected:
    virtual void start() = 0;
    virtual void stop();
    virtual void pause();
    virtual void resume();
    virtual void processCommand(int code);
    virtual void sessionChange(LogonEvent event, qint64 sessionId);
    virtual void createApplication(int& argc, char** argv) = 0;
    // Called by start() when the service could not come up: systemd gets the
    // line as its status instead of READY=1, and the process stays up idle.
    void reportStartFailure(const QString& status);
    virtual int executeApplication() = 0;

private:
    int RunForeground();
    int Install();
    int Uninstall();
    void StopOnce();
    void NotifyStarted();

    int m_argc;
    char** m_argv;
    QString m_name;
    QString m_description;
    bool m_startFailed = false;
    QString m_startFailure;
    StartupType m_startupType = ManualStartup;
    bool m_stopped = false;
};
