#pragma once

#include <QtGlobal>

class CommCommand;
class QIODevice;

// One queued request: the decoded command and the socket it came from.
// Package type 3 is a server request, 5 belongs to the client side.
class SocketCommandPackage {
public:
    SocketCommandPackage(CommCommand* command, QIODevice* socket, quint64 commType, quint64 packageType)
        : m_command(command), m_socket(socket), m_commType(commType), m_packageType(packageType) {}
    virtual ~SocketCommandPackage() = default;

    CommCommand* getCommand() const { return m_command; }
    void setCommand(CommCommand* command) { m_command = command; }
    QIODevice* getSocket() const { return m_socket; }
    quint64 getCommType() const { return m_commType; }
    quint64 getPackageType() const { return m_packageType; }

private:
    CommCommand* m_command;
    QIODevice* m_socket;
    quint64 m_commType;
    quint64 m_packageType;
};
