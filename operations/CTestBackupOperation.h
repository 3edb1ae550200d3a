#pragma once

#include "IOperation.h"

#include <atomic>

class CTestBackupOperationThread;

// The built-in test backup operation, registered as "BackupOperation".
class CTestBackupOperation : public IOperation {
public:
    CTestBackupOperation();
    CTestBackupOperation(const QString& name, qint64 durationMinutes);
    CTestBackupOperation(const CTestBackupOperation&) = delete;
    CTestBackupOperation& operator=(const CTestBackupOperation&) = delete;
    virtual ~CTestBackupOperation();

    QString getTypeName() const override;
    QDataStream& ReadFromStream(QDataStream& in) override;
    QDataStream& WriteToStream(QDataStream& out) const override;

    void Wait() override;
    bool Start() override;
    void Stop() override;
    QString getErrorText() const override { return "error"; }
    bool IsPaused() const override { return false; }
    quint64 getCurrentProgress() override;
    quint64 getTotalProgress() override;
    bool IsCancelled() const override { return false; }
    int getErrorCode() const override { return 0; }
    bool IsRunning() override;
    bool CanStop() const override { return true; }
    bool CanWait() const override { return true; }
    bool ReportsProgress() const override { return true; }
    QString getName() const override;

    QString name() const { return m_name; }
    qint64 durationMinutes() const { return m_durationMinutes; }

private:
    static std::atomic<quint64> s_constructed;

    QString m_name;
    qint64 m_durationMinutes = 0;
    CTestBackupOperationThread* m_thread = nullptr;
};
