#include "AgentCommand.h"
#include "HistoryCommand.h"
#include "MetricsCommand.h"
#include "PlanCommand.h"
#include "PlansCommand.h"
#include "PreviewCommand.h"
#include "StatusCommand.h"
#include "ToolOutput.h"

#include "framework/Clock.h"

#include <QCoreApplication>

namespace {
QString Usage() {
    return "Usage: orvelctl <command> [options]\n"
           "  preview   show a trigger's next start times as the service computes them\n"
           "  plan      add, modify or delete a plan in the service's database and the running service\n"
           "  status    the service's schedule: next start, last run and its result per plan\n"
           "  metrics   the schedule health from the run state, in the Prometheus text format\n"
           "  history   what became of each start of each plan, and why, newest first\n"
           "  plans     list the plan UUIDs of the service's database\n"
           "  agent     run a stand-in agent that prints and acknowledges the service's commands\n"
           "Run 'orvelctl <command> --help' for the options of a command.\n";
}
} // namespace

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    const QString command = arguments.value(0);
    const QStringList rest = arguments.mid(1);
    if (command == "preview") {
        return PreviewCommand::Run(rest);
    }
    if (command == "plan") {
        return PlanCommand::Run(rest);
    }
    if (command == "status") {
        return StatusCommand::Run(rest);
    }
    if (command == "metrics") {
        return MetricsCommand::Run(rest);
    }
    if (command == "plans") {
        return PlansCommand::Run(rest);
    }
    if (command == "history") {
        return HistoryCommand::Run(rest);
    }
    if (command == "agent") {
        return AgentCommand::Run(rest);
    }
    if (command == "--help" || command == "-h") {
        return ToolOutput::Out(Usage(), 0);
    }
    const QString problem =
        command.isEmpty() ? QString("a command is needed") : QString("unknown command '%1'").arg(command);
    return ToolOutput::Fail(QString("orvelctl: %1\n%2").arg(problem, Usage().trimmed()), 2);
}
