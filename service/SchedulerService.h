#pragma once

#include "platform/QtService.h"

#include <QCoreApplication>

class TaskScheduler;

// The service object the framework drives: brings up the log and the task
// scheduler in start(), takes them down in stop(), and turns session events
// into event trigger codes.
class SchedulerService : public QtService<QCoreApplication> {
public:
    SchedulerService(int argc, char** argv);
    ~SchedulerService() override;

protected:
    void start() override;
    void stop() override;
    void sessionChange(LogonEvent event, qint64 sessionId) override;

private:
    TaskScheduler* m_taskScheduler = nullptr;
};
