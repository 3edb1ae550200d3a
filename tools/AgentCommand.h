#pragma once

#include <QStringList>

// "orvelctl agent": a stand-in for the suite's agent. Listens on the agent
// endpoint, answers every command with result 0 and prints one line per
// command: time received, command type, plan UUID, next start time, end flag.
class AgentCommand {
public:
    static int Run(const QStringList& arguments);
    static QString Help();
    static QString Describe(const QByteArray& payload);
};
