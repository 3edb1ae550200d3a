#pragma once

#include "CommCommand.h"

#include <QtGlobal>

#include <memory>

// One queued request: the decoded command and the connection it came from.
// The package owns its command; whoever holds the package owns both.
class SocketCommandPackage {
public:
    SocketCommandPackage(std::unique_ptr<CommCommand> command, quint64 connectionId, quint64 commType,
                         quint64 packageType)
        : m_command(std::move(command)), m_connectionId(connectionId), m_commType(commType),
          m_packageType(packageType) {}
    virtual ~SocketCommandPackage() = default;

    CommCommand* getCommand() const { return m_command.get(); }
    // The server's id of the connection the request came from; never reused,
    // so a reply for a connection that has gone reaches no one.
    quint64 getConnectionId() const { return m_connectionId; }
    quint64 getCommType() const { return m_commType; }
    quint64 getPackageType() const { return m_packageType; }

private:
    std::unique_ptr<CommCommand> m_command;
    quint64 m_connectionId;
    quint64 m_commType;
    quint64 m_packageType;
};
