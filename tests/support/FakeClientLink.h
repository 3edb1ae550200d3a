#pragma once

#include "framework/ClientCommunManager.h"

#include <QString>

#include <functional>
#include <mutex>
#include <vector>

// Stands in for the client link to the agent: it is the live client manager
// while it exists and keeps every command it is handed.
class FakeClientLink : public ClientCommunManager {
public:
    struct Sent {
        quint64 type;
        QString planUuid;
        QString nextStartTime;
        quint64 endFlag;
        quint64 triggerType;
        quint64 triggerFlag;
        CommunAttribute attribute;
    };

    std::vector<Sent> Commands() const;
    std::vector<Sent> CommandsOfType(quint64 type) const;
    void Clear();
    // Runs on the sending thread for every command, after it is recorded: a
    // place to look at the system in the middle of the operation that sends.
    void OnEachCommand(std::function<void(const Sent&)> hook);

    void onRequestCommand(CommCommand* command) override;

private:
    mutable std::mutex m_mutex;
    std::vector<Sent> m_sent;
    std::function<void(const Sent&)> m_hook;
};
