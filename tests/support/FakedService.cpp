#include "FakedService.h"

#include <QFile>

#include <csignal>

bool FakedService::Start() {
    QFile::remove(m_folder.Path("log/schedulerservice.log"));
    m_process.emplace(m_folder);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    m_clock.Apply(environment);
    environment.insert("NOTIFY_SOCKET", m_folder.Path("notify"));
    m_process->process().setProcessEnvironment(environment);
    return m_process->Start() && m_process->WaitForLog("SchedulerService start success.", 20000);
}

bool FakedService::Stop() {
    m_process->Signal(SIGTERM);
    return m_process->WaitForExit(20000);
}

bool FakedService::Kill() {
    m_process->Signal(SIGKILL);
    return m_process->WaitForExit(20000);
}

int FakedService::CountLog(const QString& part) const {
    return m_process->LogMessages().filter(part).size();
}
