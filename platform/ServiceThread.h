#pragma once

#include <QThread>

// A QThread for the service's own workers: its event loop runs with an
// alternate signal stack, so that a stack overflow there still leaves a crash
// report. Its name (at most 15 characters reach the system) shows in ps, top
// and debuggers.
class ServiceThread : public QThread {
    Q_OBJECT
public:
    explicit ServiceThread(const QString& name, QObject* parent = nullptr);

protected:
    void run() override;
};
