#include "CTestBackupOperationThread.h"

#include "platform/SignalStack.h"

#include <QCoreApplication>
#include <QElapsedTimer>

CTestBackupOperationThread::CTestBackupOperationThread(const QString& name, qint64 durationMinutes)
    : m_name(name), m_durationMinutes(static_cast<quint64>(durationMinutes)) {}

void CTestBackupOperationThread::SetFinished(bool finished) {
    QMutexLocker locker(&m_mutex);
    m_finished = finished;
}

bool CTestBackupOperationThread::IsFinished() {
    QMutexLocker locker(&m_mutex);
    return m_finished;
}

void CTestBackupOperationThread::BeginRun() {
    SetFinished(false);
    start(QThread::InheritPriority);
}

void CTestBackupOperationThread::run() {
    SignalStack stack;
    QElapsedTimer timer;
    timer.start();
    m_total = m_durationMinutes * 60000;
    m_elapsed = static_cast<quint64>(timer.elapsed());
    while (m_elapsed < m_total) {
        QCoreApplication::processEvents();
        const bool stop = IsFinished();
        QThread::usleep(10000);
        m_elapsed = static_cast<quint64>(timer.elapsed());
        if (stop) {
            break;
        }
    }
    SetFinished(true);
}

void CTestBackupOperationThread::StopRun() {
    m_total = 100;
    m_elapsed = 0;
    SetFinished(true);
    quit();
    wait();
}
