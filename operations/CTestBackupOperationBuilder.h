#pragma once

#include "IRegistrarBuilder.h"

// Builder of the test backup operation; registers itself under
// "BackupOperation" when it is created, which happens before main runs.
class CTestBackupOperationBuilder : public IRegistrarBuilder {
public:
    static CTestBackupOperationBuilder* instance();

    IQorRegistrar* Create() override;
    void Destroy(IQorRegistrar* object) override;
    QString getTypeName() const override { return m_typeName; }

    virtual ~CTestBackupOperationBuilder() = default;

private:
    CTestBackupOperationBuilder();

    QString m_typeName;
};
