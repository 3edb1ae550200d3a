// The agent killed in the middle of bursts, measured from outside: the real
// service with N every-minute plans due at the same second, and a stand-in
// agent that is killed every 7 s and also at the first run of each minute's
// burst, and started again at once. It answers runs 20 ms after they arrive,
// so a kill finds some received and unanswered. Prints the due starts that
// never reached an agent, the runs that came twice, and how many of those
// had been received unanswered by a killed agent.
// Usage: agent_kill_bench [minutes=5] [plans=200] [poll|timer]
#include "ReservedPort.h"
#include "ServiceUnderTest.h"

#include "framework/Clock.h"
#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/CommunServer.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/ResultCommand.h"
#include "framework/TriggerAttribute.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace {
constexpr int kKillEveryMSecs = 7000;
constexpr int kAnswerAfterMSecs = 20;

// One run as the agent saw it: plan and the start it was due at.
using Run = QPair<QString, QString>;

class KilledAgent : public QObject {
public:
    explicit KilledAgent(quint16 port) : m_port(port) {
        m_answer.setInterval(kAnswerAfterMSecs);
        connect(&m_answer, &QTimer::timeout, this, [this] { AnswerAll(); });
        m_answer.start();
    }

    void Start(qintptr descriptor) {
        m_server = std::make_unique<CommunServer>();
        if (descriptor >= 0) {
            m_server->StartOnDescriptor(descriptor);
        } else {
            m_server->Start("127.0.0.1", m_port);
        }
        connect(m_server.get(), &CommunServer::incomingBlockData, this,
                [this](quint64, quint64 connection, QByteArray bytes) { Receive(connection, bytes); });
    }

    // Gone with what it had not answered, and back at once.
    void Kill() {
        for (const Waiting& waiting : qAsConst(m_waiting)) {
            if (waiting.run.first.isEmpty()) {
                continue;
            }
            m_diedUnanswered.insert(waiting.run);
        }
        m_waiting.clear();
        m_server.reset();
        ++m_kills;
        Start(-1);
    }

    const QHash<Run, int>& runs() const { return m_runs; }
    const QSet<Run>& diedUnanswered() const { return m_diedUnanswered; }
    int kills() const { return m_kills; }
    bool burstBegun = false;

private:
    struct Waiting {
        quint64 connection;
        QByteArray result;
        Run run;
    };

    void Receive(quint64 connection, const QByteArray& bytes) {
        std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
        if (!command) {
            return;
        }
        Run run;
        if (command->getCommandType() == 600) {
            RequestTriggerExecuteInfoData data;
            CommandBuilder::BytearrayToData(static_cast<RequestCommand*>(command.get())->getRfrnRequestData(),
                                            &data);
            run = Run(command->getPlanUuid(), data.getNextStartTime());
            ++m_runs[run];
            burstBegun = true;
        }
        ResultCommand result;
        result.GetRequestCommandInfo(*command);
        m_waiting.push_back(Waiting{connection, CommandBuilder::CommandToBytearray(&result), run});
    }

    void AnswerAll() {
        if (m_server == nullptr) {
            return;
        }
        for (const Waiting& waiting : qAsConst(m_waiting)) {
            m_server->SendResult(waiting.connection, waiting.result);
        }
        m_waiting.clear();
    }

    quint16 m_port;
    std::unique_ptr<CommunServer> m_server;
    QTimer m_answer;
    QVector<Waiting> m_waiting;
    QHash<Run, int> m_runs;
    QSet<Run> m_diedUnanswered;
    int m_kills = 0;
};

void Prepare(const QString& folder, quint16 agentPort, bool timerMode, int plans, const QDateTime& firstDue) {
    QDir(folder).mkpath("cfg");
    QDir(folder).mkpath("data");
    QFile config(folder + "/cfg/config.ini");
    config.open(QIODevice::WriteOnly);
    config.write(QString("[Communication]\nAgentPort=%1\nSchedulerPort=0\n[Scheduler]\nDateTimeFireType=%2\n")
                     .arg(agentPort)
                     .arg(timerMode ? 1 : 0)
                     .toUtf8());
    DatabaseFunctionOperation database;
    QString error;
    database.OpenForWriting(folder + "/data/alldb.db", error);
    TriggerAttribute attribute;
    attribute.setTriggerType(2);
    attribute.setStartTime(firstDue.toString("yyyy-MM-dd hh:mm:ss"));
    attribute.setInterval(60);
    for (int i = 0; i < plans; ++i) {
        database.StoreTrigger(QString("plan-%1").arg(i), QString(), attribute, error);
    }
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int minutes = arguments.value(1, "5").toInt();
    const int plans = arguments.value(2, "200").toInt();
    const bool timerMode = arguments.value(3, "poll") == "timer";

    QTemporaryDir dir;
    ReservedPort agentPort;
    QDateTime firstDue = Clock::now().addSecs(60);
    firstDue.setTime(QTime(firstDue.time().hour(), firstDue.time().minute(), 30));
    Prepare(dir.path(), agentPort.port(), timerMode, plans, firstDue);
    KilledAgent agent(agentPort.port());
    agent.Start(agentPort.Listen());
    ServiceUnderTest service(dir.path());
    if (!service.Spawn(app.applicationDirPath() + "/OrvelSchedulerService")) {
        std::fprintf(stderr, "cannot start the service\n");
        return 1;
    }

    QTimer every7s;
    every7s.setInterval(kKillEveryMSecs);
    QObject::connect(&every7s, &QTimer::timeout, &agent, [&agent] { agent.Kill(); });
    every7s.start();
    // The first run of a minute's burst kills the agent at once.
    QTimer burstWatch;
    burstWatch.setInterval(1);
    QElapsedTimer sinceBurstKill;
    sinceBurstKill.start();
    QObject::connect(&burstWatch, &QTimer::timeout, &agent, [&] {
        if (agent.burstBegun && sinceBurstKill.elapsed() > 30000) {
            agent.Kill();
            sinceBurstKill.restart();
        }
        agent.burstBegun = false;
    });
    burstWatch.start();

    const QDateTime lastDue = firstDue.addSecs(60 * (minutes - 1));
    QTimer::singleShot(static_cast<int>(Clock::now().msecsTo(lastDue)) + 20000, &app,
                       &QCoreApplication::quit);
    app.exec();
    int exitCode = -1;
    service.Terminate(60, exitCode);

    int missing = 0;
    int twice = 0;
    int twiceUnanswered = 0;
    for (int i = 0; i < plans; ++i) {
        for (QDateTime due = firstDue; due <= lastDue; due = due.addSecs(60)) {
            const Run run(QString("plan-%1").arg(i), due.toString("yyyy-MM-dd hh:mm:ss"));
            const int count = agent.runs().value(run);
            missing += count == 0 ? 1 : 0;
            twice += count > 1 ? 1 : 0;
            twiceUnanswered += count > 1 && agent.diedUnanswered().contains(run) ? 1 : 0;
        }
    }
    std::printf("%s mode, %d every-minute plans over %d minutes, agent killed %d times: %d of %d due starts "
                "never reached an agent; %d reached it twice, %d of them received unanswered by a killed "
                "agent\n",
                timerMode ? "timer" : "poll", plans, minutes, agent.kills(), missing, plans * minutes, twice,
                twiceUnanswered);
    return missing == 0 && twice == twiceUnanswered ? 0 : 1;
}
