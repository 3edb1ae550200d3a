#include "FakeClientLink.h"

#include "framework/CommandBuilder.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"

void FakeClientLink::onRequestCommand(CommCommand* command) {
    auto* request = dynamic_cast<RequestCommand*>(command);
    if (request == nullptr) {
        return;
    }
    RequestTriggerExecuteInfoData data;
    CommandBuilder::BytearrayToData(request->getRfrnRequestData(), &data);
    const Sent sent{request->getCommandType(),          request->getPlanUuid(),    data.getNextStartTime(),
                    data.getTriggerEndFlag(),           request->getTriggerType(), request->getTriggerFlag(),
                    request->getObjectCommunAttribute()};
    std::function<void(const Sent&)> hook;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_sent.push_back(sent);
        hook = m_hook;
    }
    if (hook) {
        hook(sent);
    }
}

void FakeClientLink::OnEachCommand(std::function<void(const Sent&)> hook) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(hook);
}

std::vector<FakeClientLink::Sent> FakeClientLink::Commands() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent;
}

std::vector<FakeClientLink::Sent> FakeClientLink::CommandsOfType(quint64 type) const {
    std::vector<Sent> matching;
    for (const Sent& sent : Commands()) {
        if (sent.type == type) {
            matching.push_back(sent);
        }
    }
    return matching;
}

void FakeClientLink::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sent.clear();
}
