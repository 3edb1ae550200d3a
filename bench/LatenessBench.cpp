// How late timer-mode runs reach the agent: the real service executable, from
// process start, with N once plans due at distinct seconds and M background
// plans (daily, weekly and monthly at random times of day, far in the future,
// so that the deadline queue holds realistic numbers). A stand-in agent in this
// process notes when each execute-trigger command (600) arrives; lateness is
// arrival minus due second, over the whole road: deadline queue, fire, client
// link, loopback.
// Usage: lateness_bench [due plans = 120] [background plans = 100000]
#include "BenchSupport.h"
#include "ReservedPort.h"

#include "framework/Clock.h"
#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/CommunServer.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/ResultCommand.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

namespace {
constexpr int kLeadSecs = 30;

void WriteConfig(const QString& path, quint16 agentPort) {
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(QString("[Communication]\nSchedulerPort=0\nAgentPort=%1\n[Scheduler]\nDateTimeFireType=1\n")
                   .arg(agentPort)
                   .toUtf8());
}

QString PlanName(int i) {
    return QString("due-%1").arg(i);
}

double Percentile(std::vector<qint64> values, double p) {
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, static_cast<size_t>(p * (values.size() - 1) + 0.5));
    return static_cast<double>(values[index]);
}

QString LoadAverage() {
    QFile file("/proc/loadavg");
    file.open(QIODevice::ReadOnly);
    return QString::fromLatin1(file.readAll()).section(' ', 0, 2);
}
} // namespace

int main(int argc, char** argv) {
    Clock::PinLocalTimeZone();
    QCoreApplication app(argc, argv);
    const int due = app.arguments().value(1, "120").toInt();
    const int background = app.arguments().value(2, "100000").toInt();
    QTemporaryDir dir;
    QDir(dir.path()).mkpath("cfg");
    QDir(dir.path()).mkpath("data");
    ReservedPort agentPort;
    WriteConfig(dir.filePath("cfg/config.ini"), agentPort.port());
    const QString database = dir.filePath("data/alldb.db");
    BenchSupport::StorePlans(database, background);

    // Whole seconds, far enough ahead for the start-up with every plan.
    const qint64 firstDue = (Clock::nowMSecsSinceEpoch() / 1000 + kLeadSecs) * 1000;
    QHash<QString, qint64> dueOf;
    {
        DatabaseFunctionOperation writer;
        QString error;
        writer.OpenForWriting(database, error);
        for (int i = 0; i < due; ++i) {
            const qint64 at = firstDue + i * 1000LL;
            TriggerAttribute attribute;
            attribute.setTriggerType(1);
            attribute.setStartTime(QDateTime::fromMSecsSinceEpoch(at).toString("yyyy-MM-dd hh:mm:ss"));
            writer.StoreTrigger(PlanName(i), QString(), attribute, error);
            dueOf.insert(PlanName(i), at);
        }
    }

    std::vector<qint64> lateness;
    CommunServer agent;
    agent.StartOnDescriptor(agentPort.Listen());
    QObject::connect(&agent, &CommunServer::incomingBlockData, &agent,
                     [&](quint64, quint64 connection, QByteArray bytes) {
                         const qint64 arrived = Clock::nowMSecsSinceEpoch();
                         std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
                         if (!command) {
                             return;
                         }
                         if (command->getCommandType() == 600 && dueOf.contains(command->getPlanUuid())) {
                             lateness.push_back(arrived - dueOf.value(command->getPlanUuid()));
                         }
                         ResultCommand result;
                         result.GetRequestCommandInfo(*command);
                         agent.SendResult(connection, CommandBuilder::CommandToBytearray(&result));
                     });

    const QString executable = dir.filePath("OrvelSchedulerService");
    QFile::copy(QCoreApplication::applicationDirPath() + "/OrvelSchedulerService", executable);
    QProcess service;
    service.setWorkingDirectory(dir.path());
    service.start(executable, {});
    service.waitForStarted(5000);
    const qint64 lastDue = firstDue + (due - 1) * 1000LL;
    while (static_cast<int>(lateness.size()) < due && Clock::nowMSecsSinceEpoch() < lastDue + 10000) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 200);
    }
    const QString load = LoadAverage();
    service.terminate();
    service.waitForFinished(10000);
    if (lateness.empty()) {
        std::fprintf(stderr, "no run reached the agent\n");
        return 1;
    }
    std::printf("timer mode, %d background plans, %d runs due at distinct seconds, %zu arrived: lateness "
                "p50 %.0f ms, p99 %.0f ms, max %.0f ms (load average %s)\n",
                background, due, lateness.size(), Percentile(lateness, 0.5), Percentile(lateness, 0.99),
                Percentile(lateness, 1.0), load.toLatin1().constData());
    return static_cast<int>(lateness.size()) == due ? 0 : 1;
}
