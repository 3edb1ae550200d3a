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

    QString serviceName() const { return m_name; }
    QString serviceDescription() const { return m_description; }
    void setServiceDescription(const QString& description) { m_description = description; }
    int serviceFlags() const { return m_flags; }
    void setServiceFlags(int flags) { m_flags = flags; }
    StartupType startupType() const { return m_startupType; }
    void setStartupType(StartupType type) { m_startupType = type; }

    // Hands a session event to the service, as logind's watcher does.
    void deliverSessionChange(LogonEvent event, qint64 sessionId) { sessionChange(event, sessionId); }

    static QString usage(const QString& program);

protected:
    virtual void start() = 0;
    virtual void stop();
    virtual void pause();
    virtual void resume();
    virtual void processCommand(int code);
    virtual void sessionChange(LogonEvent event, qint64 sessionId);
    virtual void createApplication(int& argc, char** argv) = 0;
    virtual int executeApplication() = 0;

private:
    int RunForeground();
    int Install();
    int Uninstall();
    void StopOnce();

    int m_argc;
    char** m_argv;
    QString m_name;
    QString m_description;
    int m_flags = Default;
    StartupType m_startupType = ManualStartup;
    bool m_stopped = false;
};
