#include "SchedulerService.h"

#include "GetApplicationDir.h"

#include "framework/ConfigReader.h"
#include "framework/Logger.h"
#include "scheduler/TaskScheduler.h"

#include <new>

namespace {
struct SessionEventCode {
    const char* name;
    quint64 code;
};

constexpr SessionEventCode kSessionEvents[] = {
    {"logon", 0x101}, {"logoff", 0x102}, {"lock", 0x103}, {"unlock", 0x104}};
} // namespace

SchedulerService::SchedulerService(int argc, char** argv)
    : QtService<QCoreApplication>(argc, argv, "OrvelSchedulerService") {
    QCoreApplication::setOrganizationName("Halvren Co..Ltd.");
    QCoreApplication::setOrganizationDomain("halvren.com");
    QCoreApplication::setApplicationName("OrvelSchedulerService");
    setServiceDescription("Scheduler service");
    setServiceFlags(NeedsStopOnShutdown);
    setStartupType(AutoStartup);
}

SchedulerService::~SchedulerService() = default;

void SchedulerService::start() {
    QCoreApplication* app = application();
    const QString appDir = GetApplicationDir();
    quint64 maxFileMiB = Logger::kDefaultMaxFileMiB;
    quint64 maxFiles = Logger::kDefaultMaxFiles;
    QStringList logProblems;
    ConfigReader::ReadLogLimits(QString("%1%2").arg(appDir, "cfg/config.ini"), maxFileMiB, maxFiles,
                                logProblems);
    if (!Logger::Initialize(appDir, "log", "schedulerservice.log", maxFileMiB, maxFiles)) {
        reportStartFailure(
            QString("Cannot open the log in %1log; the service runs without plans and accepts no "
                    "commands.")
                .arg(appDir));
        return;
    }
    const QString rule(106, '=');
    Logger::Banner({rule, QString(45, ' ') + "SchedulerService start" + QString(46, ' '), rule});
    Logger::Info("Logger initial success.");
    for (const QString& problem : logProblems) {
        Logger::Warn(problem);
    }
    m_taskScheduler = new (std::nothrow) TaskScheduler(app);
    if (m_taskScheduler == nullptr) {
        const QString failure("Failed to create TaskScheduler object,the pointer is NULL.");
        Logger::Error(failure);
        reportStartFailure(failure);
        Logger::UnInitialize();
        return;
    }
    if (m_taskScheduler->Init(appDir)) {
        Logger::Info("SchedulerService initial success.");
        if (m_taskScheduler->Start()) {
            Logger::Info("SchedulerService start success.");
            QObject::connect(m_taskScheduler, &TaskScheduler::statusChanged, &QtServiceBase::NotifyStatus);
            QtServiceBase::NotifyStatus(m_taskScheduler->StatusLine());
            return;
        }
        m_taskScheduler->Stop();
    }
    reportStartFailure(m_taskScheduler->getFailure());
    m_taskScheduler->UnInit();
    Logger::UnInitialize();
}

void SchedulerService::stop() {
    if (m_taskScheduler != nullptr) {
        m_taskScheduler->Stop();
        m_taskScheduler->UnInit();
        m_taskScheduler = nullptr;
        Logger::Info("SchedulerService stop success.");
    }
    Logger::UnInitialize();
}

void SchedulerService::sessionChange(LogonEvent event, qint64) {
    const int index = static_cast<int>(event);
    if (index < 0 || index > 3 || m_taskScheduler == nullptr) {
        return;
    }
    const SessionEventCode& entry = kSessionEvents[index];
    if (!m_taskScheduler->TriggerEvent(entry.code)) {
        Logger::Error(QString("Trigger failed %1 events.").arg(entry.name));
    }
}
