#pragma once

#include "IQorRegistrar.h"

// An operation that can be started, stopped, waited for and asked for progress.
class IOperation : public IQorRegistrar {
public:
    virtual void Wait() = 0;
    virtual bool Start() = 0;
    virtual void Stop() = 0;
    virtual QString getErrorText() const = 0;
    virtual bool IsPaused() const = 0;
    virtual quint64 getCurrentProgress() = 0;
    virtual quint64 getTotalProgress() = 0;
    virtual bool IsCancelled() const = 0;
    virtual int getErrorCode() const = 0;
    virtual bool IsRunning() = 0;
    virtual bool CanStop() const = 0;
    virtual bool CanWait() const = 0;
    virtual bool ReportsProgress() const = 0;
    virtual QString getName() const = 0;

protected:
    ~IOperation() = default;
};
