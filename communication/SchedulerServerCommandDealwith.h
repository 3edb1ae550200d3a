#pragma once

#include <QObject>

class CommCommand;
#include "framework/ResultCommand.h"
#include "framework/SocketCommandPackage.h"

// Carries out plan commands (new 200, delete 203, modify 204) on the command
// server's dealing thread and answers each with a result command.
class SchedulerServerCommandDealwith : public QObject {
    Q_OBJECT
public:
    explicit SchedulerServerCommandDealwith(QObject* parent = nullptr);

    ResultCommand* DealRequestCommand(CommCommand* request);
    ResultCommand* DealNewPlanCommand(CommCommand* request);
    ResultCommand* DealDeletePlanCommand(CommCommand* request);
    ResultCommand* DealModifyPlanCommand(CommCommand* request);

Q_SIGNALS:
    void dealCommandResult(SocketCommandPackage* ppackage, ResultCommand* pretcommand);

public Q_SLOTS:
    void onDealQueuePackageCommand(SocketCommandPackage* psocketcommand);

private:
    static quint64 StartNewFire(class TriggerObject* object);
};
