#include "CTestBackupOperation.h"

#include "CTestBackupOperationThread.h"

std::atomic<quint64> CTestBackupOperation::s_constructed{0};

CTestBackupOperation::CTestBackupOperation() {
    ++s_constructed;
}

CTestBackupOperation::CTestBackupOperation(const QString& name, qint64 durationMinutes)
    : m_name(name), m_durationMinutes(durationMinutes) {
    ++s_constructed;
}

CTestBackupOperation::~CTestBackupOperation() {
    if (m_thread != nullptr) {
        m_thread->StopRun();
        delete m_thread;
    }
}

QString CTestBackupOperation::getTypeName() const {
    return "BackupOperation";
}

QDataStream& CTestBackupOperation::ReadFromStream(QDataStream& in) {
    return in >> m_name >> m_durationMinutes;
}

QDataStream& CTestBackupOperation::WriteToStream(QDataStream& out) const {
    return out << m_name << m_durationMinutes;
}

void CTestBackupOperation::Wait() {
    if (m_thread != nullptr) {
        m_thread->wait();
    }
}

bool CTestBackupOperation::Start() {
    if (m_thread == nullptr) {
        m_thread = new CTestBackupOperationThread(m_name, m_durationMinutes);
    }
    m_thread->BeginRun();
    return true;
}

void CTestBackupOperation::Stop() {
    if (m_thread != nullptr) {
        m_thread->StopRun();
    }
}

quint64 CTestBackupOperation::getCurrentProgress() {
    if (m_thread == nullptr) {
        return 0;
    }
    const quint64 elapsed = qMin(m_thread->getElapsed(), m_thread->getTotal());
    m_thread->setElapsed(elapsed);
    return elapsed;
}

quint64 CTestBackupOperation::getTotalProgress() {
    return m_thread != nullptr ? m_thread->getTotal() : 100;
}

bool CTestBackupOperation::IsRunning() {
    return m_thread != nullptr && !m_thread->IsFinished();
}

QString CTestBackupOperation::getName() const {
    return QString("TestBackupOperation%1").arg(s_constructed.load());
}
