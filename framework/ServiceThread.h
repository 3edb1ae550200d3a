#pragma once

#include <QThread>

// A QThread for the service's own workers: its event loop runs with an
// alternate signal stack, so that a stack overflow there still leaves a crash
// report.
class ServiceThread : public QThread {
    Q_OBJECT
public:
    using QThread::QThread;

protected:
    void run() override;
};
