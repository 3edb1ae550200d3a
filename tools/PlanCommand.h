#pragma once

#include <QStringList>

class CommCommand;
class ResultCommand;

// "orvelctl plan add|modify|delete": records the plan in the service's
// database and sends the plan command to the running service.
class PlanCommand {
public:
    static int Run(const QStringList& arguments);
    static QString Help();

private:
    static int Send(CommCommand* command, const QString& host, quint16 port);
};
