#pragma once

#include "framework/ResultCommand.h"
#include "framework/SocketCommandPackage.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <utility>

class RunStateRecorder;

// Carries out plan commands (new 200, delete 203, modify 204) on the command
// server's dealing thread and answers each with a result command. It owns each
// package while it works on it; what goes back is the serialised reply and the
// id of the connection to send it on.
class SchedulerServerCommandDealwith : public QObject {
    Q_OBJECT
public:
    explicit SchedulerServerCommandDealwith(QObject* parent = nullptr);
    // Before the dealing thread starts.
    void SetRunState(RunStateRecorder* runState) { m_runState = runState; }

    std::unique_ptr<ResultCommand> DealRequestCommand(CommCommand* request);
    std::unique_ptr<ResultCommand> DealNewPlanCommand(CommCommand* request);
    std::unique_ptr<ResultCommand> DealDeletePlanCommand(CommCommand* request);
    std::unique_ptr<ResultCommand> DealModifyPlanCommand(CommCommand* request);

    void onDealQueuePackageCommand(std::unique_ptr<SocketCommandPackage> psocketcommand);
    // (command, result) -> plan commands dealt with so far; safe from any thread.
    std::map<std::pair<QString, QString>, quint64> Dealt() const;

Q_SIGNALS:
    // trace is the request's trace text, for the server's log line.
    void dealCommandResult(quint64 connectionId, QString trace, QByteArray reply);

private:
    static quint64 StartNewFire(class TriggerObject* object);
    void Count(quint64 commandType, bool ok);

    // Per command (new, delete, modify) the commands that succeeded, then
    // those that failed.
    std::array<std::atomic<quint64>, 6> m_dealt{};
    RunStateRecorder* m_runState = nullptr;
};
