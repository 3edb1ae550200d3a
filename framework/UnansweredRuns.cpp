#include "UnansweredRuns.h"

#include "CommandBuilder.h"
#include "RequestCommand.h"
#include "RequestTriggerExecuteInfoData.h"
#include "ResultCommand.h"
#include "WireFormat.h"

#include <QDataStream>

#include <algorithm>
#include <memory>

namespace {
constexpr quint64 kExecuteTrigger = 600;

struct CommandDeleter {
    void operator()(CommCommand* command) const { CommandBuilder::DestroyCommand(command); }
};
using Command = std::unique_ptr<CommCommand, CommandDeleter>;

// Every command begins with its type and plan; reading those costs no
// decoding of the rest.
quint64 TypeAndPlan(const QByteArray& payload, QString& planUuid) {
    QDataStream in(payload);
    in.setVersion(WireFormat::kStreamVersion);
    quint64 type = 0;
    in >> type >> planUuid;
    return in.status() == QDataStream::Ok ? type : 0;
}

QString DueStartOf(const QByteArray& payload) {
    const Command command(CommandBuilder::BytearrayToCommand(payload));
    const auto* request = dynamic_cast<const RequestCommand*>(command.get());
    RequestTriggerExecuteInfoData data;
    if (request == nullptr || !CommandBuilder::BytearrayToData(request->getRfrnRequestData(), &data)) {
        return QString();
    }
    return data.getNextStartTime();
}
} // namespace

void UnansweredRuns::Written(const QByteArray& payload) {
    QString planUuid;
    if (TypeAndPlan(payload, planUuid) == kExecuteTrigger && !planUuid.isEmpty()) {
        m_byPlan.insert(planUuid, Kept{++m_written, payload});
    }
}

void UnansweredRuns::Answered(const QByteArray& payload) {
    QString planUuid;
    if (m_byPlan.isEmpty() || TypeAndPlan(payload, planUuid) == kExecuteTrigger ||
        !m_byPlan.contains(planUuid)) {
        return;
    }
    const Command command(CommandBuilder::BytearrayToCommand(payload));
    const auto* result = dynamic_cast<const ResultCommand*>(command.get());
    if (result != nullptr && result->getRequestCommandType() == kExecuteTrigger) {
        m_byPlan.remove(planUuid);
    }
}

QVector<UnansweredRuns::Run> UnansweredRuns::Take() {
    std::vector<std::pair<quint64, QString>> order;
    order.reserve(static_cast<size_t>(m_byPlan.size()));
    for (auto it = m_byPlan.constBegin(); it != m_byPlan.constEnd(); ++it) {
        order.emplace_back(it->order, it.key());
    }
    std::sort(order.begin(), order.end());
    QVector<Run> runs;
    runs.reserve(static_cast<int>(order.size()));
    for (const auto& entry : order) {
        const QByteArray payload = m_byPlan.value(entry.second).payload;
        runs.push_back(Run{entry.second, DueStartOf(payload), payload});
    }
    m_byPlan.clear();
    return runs;
}
