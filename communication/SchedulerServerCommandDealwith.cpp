#include "SchedulerServerCommandDealwith.h"

#include "firing/TriggerFireManager.h"
#include "framework/CommandBuilder.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/RequestCommand.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"
#include "framework/SocketCommandPackage.h"
#include "framework/WireFormat.h"
#include "store/SchedulerDataStoreManager.h"
#include "triggers/TriggerCheck.h"
#include "triggers/TriggerObject.h"

namespace {
constexpr quint64 kSuccess = 0;
constexpr quint64 kFailure = 1;

quint64 TypeOf(TriggerObject* object) {
    return object->getTriggerType();
}

const std::array<std::pair<quint64, const char*>, 3> kCommands{{{CommandTypes::kNewPlan, "add"},
                                                                {CommandTypes::kDeletePlan, "delete"},
                                                                {CommandTypes::kModifyPlan, "modify"}}};

const QByteArray& Payload(CommCommand* request) {
    return static_cast<RequestCommand*>(request)->getRfrnRequestData();
}

bool PassesDoor(CommCommand* request) {
    const QString fault = TriggerCheck::CommandFault(*request);
    if (fault.isEmpty()) {
        return true;
    }
    Logger::Error(
        QString("The plan[%1] command%2 is refused: %3.")
            .arg(LogText::Outside(request->getPlanUuid()), LogText::Outside(request->getTraceFlag()), fault));
    return false;
}

// Every handler answers with a new result command: 1 for a missing request,
// otherwise what the handler's steps give. Null only when no result can be built.
template <typename Steps> std::unique_ptr<ResultCommand> Answer(CommCommand* request, Steps steps) {
    std::unique_ptr<ResultCommand> result(
        static_cast<ResultCommand*>(CommandBuilder::BuilderCommand(CommandTypes::kResult)));
    if (!result) {
        return nullptr;
    }
    result->setUintResult(request == nullptr ? kFailure : steps(result.get()));
    return result;
}
} // namespace

SchedulerServerCommandDealwith::SchedulerServerCommandDealwith(QObject* parent) : QObject(parent) {}

// Starts and lists the fire of a registered trigger object: 0 when the plan is
// served (started, or finished at once), 1 when it has no fire.
quint64 SchedulerServerCommandDealwith::StartNewFire(TriggerObject* object) {
    return TriggerFireManager::StartNewTriggerFire(object) == 1 ? kFailure : kSuccess;
}

std::unique_ptr<ResultCommand> SchedulerServerCommandDealwith::DealNewPlanCommand(CommCommand* request) {
    return Answer(request, [request](ResultCommand*) {
        if (!PassesDoor(request)) {
            return kFailure;
        }
        TriggerObject* object = SchedulerDataStoreManager::AddTriggerObject(request);
        return object == nullptr ? kFailure : StartNewFire(object);
    });
}

std::unique_ptr<ResultCommand> SchedulerServerCommandDealwith::DealDeletePlanCommand(CommCommand* request) {
    return Answer(request, [this, request](ResultCommand* result) {
        if (!PassesDoor(request)) {
            return kFailure;
        }
        const QString planUuid = request->getPlanUuid();
        TriggerObject* object = SchedulerDataStoreManager::GetTriggerObject(planUuid);
        if (object == nullptr || !TriggerFireManager::RemoveTriggerFire(planUuid, TypeOf(object))) {
            return kFailure;
        }
        return SchedulerDataStoreManager::DeleteTriggerObject(planUuid, result, m_runState) ? kSuccess
                                                                                            : kFailure;
    });
}

// The plan's current fire is removed before its trigger object is changed, by
// the type the object holds now: no fire then reads the object while it is
// rewritten, and a plan that moves between calendar and event triggers leaves
// no fire of its old kind behind.
std::unique_ptr<ResultCommand> SchedulerServerCommandDealwith::DealModifyPlanCommand(CommCommand* request) {
    return Answer(request, [request](ResultCommand*) {
        if (!PassesDoor(request)) {
            return kFailure;
        }
        const QString planUuid = request->getPlanUuid();
        SchedulerPlanData data;
        CommandBuilder::BytearrayToData(Payload(request), &data);
        TriggerObject* existing = SchedulerDataStoreManager::GetTriggerObject(planUuid);
        if (existing != nullptr) {
            TriggerFireManager::RemoveTriggerFire(planUuid, TypeOf(existing));
        }
        TriggerObject* object = SchedulerDataStoreManager::ModifyTriggerObject(request);
        if (object == nullptr) {
            return kFailure;
        }
        const quint64 newType = data.getRfrnSchedulerPlan().getObjectTriggerAttribute().getTriggerType();
        if (!TriggerFireManager::RemoveTriggerFire(planUuid, newType)) {
            return kFailure;
        }
        return StartNewFire(object);
    });
}

std::unique_ptr<ResultCommand> SchedulerServerCommandDealwith::DealRequestCommand(CommCommand* request) {
    if (request == nullptr) {
        Logger::Error("Server request command pointer is NULL.");
        return nullptr;
    }
    std::unique_ptr<ResultCommand> result;
    switch (request->getCommandType()) {
    case CommandTypes::kNewPlan:
        result = DealNewPlanCommand(request);
        break;
    case CommandTypes::kDeletePlan:
        result = DealDeletePlanCommand(request);
        break;
    case CommandTypes::kModifyPlan:
        result = DealModifyPlanCommand(request);
        break;
    default:
        return nullptr;
    }
    if (result == nullptr) {
        return nullptr;
    }
    const QString trace = LogText::Outside(request->getTraceFlag());
    Count(request->getCommandType(), result->getUintResult() == kSuccess);
    if (result->getUintResult() != kSuccess) {
        Logger::Error(QString("Server deal with request command%1 unsuccessfully.").arg(trace, 0));
    } else {
        Logger::Info(QString("Server deal with request command%1 was successful.").arg(trace, 0));
    }
    return result;
}

void SchedulerServerCommandDealwith::onDealQueuePackageCommand(
    std::unique_ptr<SocketCommandPackage> psocketcommand) {
    if (!psocketcommand) {
        Logger::Error("Server command deal with into the parameter pointer is null.");
        return;
    }
    CommCommand* request = psocketcommand->getCommand();
    if (request == nullptr) {
        Logger::Error("Server command deal with into the command pointer is null.");
        return;
    }
    const QString trace = LogText::Outside(request->getTraceFlag());
    Logger::Info(
        QString("Server command%1 reach SchedulerServerCommandDealwith in the onDealQueuePackageCommand.")
            .arg(trace, 0));
    const std::unique_ptr<ResultCommand> result = DealRequestCommand(request);
    if (!result) {
        Logger::Error(QString("Server deal with command%1 return pointer is NULL.").arg(trace, 0));
        return;
    }
    result->GetRequestCommandInfo(*request);
    Q_EMIT dealCommandResult(psocketcommand->getConnectionId(), result->getTraceFlag(),
                             CommandBuilder::CommandToBytearray(result.get()));
}

void SchedulerServerCommandDealwith::Count(quint64 commandType, bool ok) {
    for (size_t i = 0; i < kCommands.size(); ++i) {
        if (kCommands[i].first == commandType) {
            ++m_dealt[i * 2 + (ok ? 0 : 1)];
        }
    }
}

std::map<std::pair<QString, QString>, quint64> SchedulerServerCommandDealwith::Dealt() const {
    std::map<std::pair<QString, QString>, quint64> dealt;
    for (size_t i = 0; i < kCommands.size(); ++i) {
        dealt[{kCommands[i].second, "ok"}] = m_dealt[i * 2];
        dealt[{kCommands[i].second, "failed"}] = m_dealt[i * 2 + 1];
    }
    return dealt;
}
