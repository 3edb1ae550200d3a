// The request queue and the TCP endpoints, over real sockets on loopback.
#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/CommunClientWork.h"
#include "framework/CommunProducerConsumerManager.h"
#include "framework/CommunServer.h"
#include "framework/FrameReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/ResultCommand.h"
#include "framework/SocketCommandPackage.h"
#include "support/AgentStandIn.h"
#include "support/LogCapture.h"
#include "support/ReservedPort.h"

#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>
#include <QThread>

#include <memory>

#include <gtest/gtest.h>

namespace {
std::unique_ptr<CommCommand> NewCommand(const QString& planUuid) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(200));
    command->setPlanUuid(planUuid);
    return command;
}

TEST(ProducerConsumerQueue, RefusesWhileNotRunningAndNullCommands) {
    CommunProducerConsumerManager queue;
    EXPECT_FALSE(CommunProducerConsumerManager::RequestCommunCommand(NewCommand("p"), 1, 2, 3));
    ASSERT_TRUE(queue.Start());
    EXPECT_FALSE(CommunProducerConsumerManager::RequestCommunCommand(nullptr, 1, 2, 3));
    queue.Stop();
    queue.Stop();
    queue.UnInit();
}

// Each package goes to the one receiver of its type, in order, on the thread
// of the receiver's context; a type nobody receives is dropped.
TEST(ProducerConsumerQueue, EachPackageReachesTheOneReceiverOfItsType) {
    CommunProducerConsumerManager queue;
    QObject context;
    QStringList server;
    QStringList client;
    auto into = [](QStringList& list) {
        return [&list](std::unique_ptr<SocketCommandPackage> package) {
            EXPECT_EQ(QThread::currentThread(), qApp->thread());
            list << package->getCommand()->getPlanUuid();
        };
    };
    queue.SetReceiver(3, &context, into(server));
    queue.SetReceiver(5, &context, into(client));
    ASSERT_TRUE(queue.Start());
    for (int i = 0; i < 100; ++i) {
        const quint64 type = i % 3 == 0 ? 5 : i % 3 == 1 ? 3 : 7;
        ASSERT_TRUE(
            CommunProducerConsumerManager::RequestCommunCommand(NewCommand(QString::number(i)), 1, 2, type));
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return server.size() == 33 && client.size() == 34; }, 10000));
    for (int i = 0; i < server.size(); ++i) {
        EXPECT_EQ(server.at(i), QString::number(3 * i + 1));
    }
    queue.Stop();
}

// Packages already handed to a receiver whose context goes before they are
// delivered, or still queued at the stop, are freed (the sanitizer build
// checks for leaks) and reach no one.
TEST(ProducerConsumerQueue, PackagesOfAGoneReceiverAreFreed) {
    CommunProducerConsumerManager queue;
    auto context = std::make_unique<QObject>();
    int delivered = 0;
    queue.SetReceiver(3, context.get(), [&delivered](std::unique_ptr<SocketCommandPackage>) { ++delivered; });
    ASSERT_TRUE(queue.Start());
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(CommunProducerConsumerManager::RequestCommunCommand(NewCommand("gone"), 1, 2, 3));
    }
    queue.Stop();
    context.reset();
    QCoreApplication::processEvents();
    EXPECT_EQ(delivered, 0);
}

TEST(CommunServer, FramesGoBothWaysAndOversizedFramesCloseTheConnection) {
    CommunServer server;
    ASSERT_TRUE(server.Init(2));
    ASSERT_TRUE(server.Start("127.0.0.1", 0));
    QObject::connect(&server, &CommunServer::incomingBlockData, &server,
                     [&server](quint64 commType, quint64 connection, QByteArray bytes) {
                         EXPECT_EQ(commType, 2u);
                         server.SendResult(connection, "echo:" + bytes);
                     });
    QTcpSocket client;
    client.connectToHost("127.0.0.1", server.serverPort());
    ASSERT_TRUE(client.waitForConnected(10000));
    client.write(FrameReader::Frame("one") + FrameReader::Frame("two"));
    FrameReader reader;
    QStringList replies;
    QByteArray payload;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            reader.Append(client.readAll());
            while (reader.Next(payload)) {
                replies << QString::fromUtf8(payload);
            }
            return replies.size() == 2;
        },
        3000));
    EXPECT_EQ(replies, (QStringList{"echo:one", "echo:two"}));

    QByteArray oversized(4, '\x7f');
    client.write(oversized);
    EXPECT_TRUE(
        QTest::qWaitFor([&client] { return client.state() == QAbstractSocket::UnconnectedState; }, 10000));
    server.Stop();
    server.Stop();
    server.UnInit();
}

QByteArray NextFrame(QTcpSocket& socket) {
    FrameReader reader;
    QByteArray payload;
    [[maybe_unused]] const bool got = QTest::qWaitFor(
        [&] {
            reader.Append(socket.readAll());
            return reader.Next(payload);
        },
        10000);
    return payload;
}

// A reply for a connection that has gone must not reach a newer one, even one
// whose socket object took the freed memory of the old (as one of the first
// few after it does). Each newcomer is sent the stale reply and then its own:
// its first frame shows whether the stale one got through.
TEST(CommunServer, AReplyForAGoneConnectionReachesNoOther) {
    CommunServer server;
    ASSERT_TRUE(server.Start("127.0.0.1", 0));
    QList<quint64> connections;
    QObject::connect(&server, &CommunServer::incomingBlockData, &server,
                     [&connections](quint64, quint64 connection, QByteArray) { connections << connection; });
    QTcpSocket first;
    first.connectToHost("127.0.0.1", server.serverPort());
    ASSERT_TRUE(first.waitForConnected(10000));
    first.write(FrameReader::Frame("request"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return connections.size() == 1; }, 10000));
    const quint64 gone = connections.first();
    first.abort();
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.connectionCount() == 0; }, 10000));

    for (int i = 0; i < 20; ++i) {
        QTcpSocket next;
        next.connectToHost("127.0.0.1", server.serverPort());
        ASSERT_TRUE(next.waitForConnected(10000));
        next.write(FrameReader::Frame("request"));
        ASSERT_TRUE(QTest::qWaitFor([&] { return connections.size() == i + 2; }, 10000));
        EXPECT_NE(connections.last(), gone);
        server.SendResult(gone, "stale");
        server.SendResult(connections.last(), "fresh");
        EXPECT_EQ(NextFrame(next), "fresh");
        next.abort();
        ASSERT_TRUE(QTest::qWaitFor([&] { return server.connectionCount() == 0; }, 10000));
    }
}

std::unique_ptr<QTcpSocket> Connected(quint16 port) {
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost("127.0.0.1", port);
    [[maybe_unused]] const bool connected = socket->waitForConnected(10000);
    return socket;
}

bool ClosedByServer(QTcpSocket& socket) {
    return QTest::qWaitFor([&socket] { return socket.state() == QAbstractSocket::UnconnectedState; }, 10000);
}

// At its limit the server makes room for a newcomer by closing the connection
// that has been idle the longest, and says so once a minute with the count.
TEST(CommunServer, AtTheLimitTheLongestIdleMakesRoom) {
    LogCapture log;
    CommunServer server;
    server.setLimits({2, 0, 0});
    ASSERT_TRUE(server.Start("127.0.0.1", 0));
    int frames = 0;
    QObject::connect(&server, &CommunServer::incomingBlockData, &server, [&frames] { ++frames; });
    const quint16 port = server.serverPort();
    auto oldest = Connected(port);
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.connectionCount() == 1; }, 10000));
    auto talker = Connected(port);
    ASSERT_TRUE(QTest::qWaitFor([&] { return server.connectionCount() == 2; }, 10000));
    // The older connection speaks last, so the newer one is idle the longest.
    oldest->write(FrameReader::Frame("still here"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return frames == 1; }, 10000));
    auto newcomer = Connected(port);
    EXPECT_TRUE(ClosedByServer(*talker));
    auto another = Connected(port);
    EXPECT_TRUE(ClosedByServer(*oldest));
    EXPECT_EQ(server.connectionCount(), 2);
    EXPECT_EQ(newcomer->state(), QAbstractSocket::ConnectedState);
    EXPECT_EQ(log.CountContaining("it closed 1 idle connection(s) to admit new ones."), 1);
    EXPECT_EQ(log.CountContaining("idle connection(s) to admit new ones."), 1);
}

// A connection that sends nothing, or stops inside a frame, is closed with
// one line; one that completes its frames stays.
TEST(CommunServer, SilentAndStalledConnectionsAreClosed) {
    LogCapture log;
    CommunServer server;
    server.setLimits({0, 400, 200});
    ASSERT_TRUE(server.Start("127.0.0.1", 0));
    auto silent = Connected(server.serverPort());
    auto stalled = Connected(server.serverPort());
    stalled->write(FrameReader::Frame("cut short").left(6));
    EXPECT_TRUE(ClosedByServer(*stalled));
    EXPECT_TRUE(ClosedByServer(*silent));
    EXPECT_EQ(log.CountContaining(": it held an incomplete frame for 0.2 s."), 1);
    EXPECT_EQ(log.CountContaining(": it sent nothing for 0.4 s."), 1);
    EXPECT_EQ(server.connectionCount(), 0);
}

TEST(CommunServer, RefusesNonLoopbackAddressesUnlessAllowed) {
    CommunServer server;
    EXPECT_FALSE(server.Start("0.0.0.0", 0));
    EXPECT_FALSE(server.Init(1));
}

// The worker on its own thread, aimed at the agent's port on loopback.
// A stand-in agent keeps each frame it receives, as text.
void RecordFrames(CommunServer& agent, QStringList& received) {
    QObject::connect(
        &agent, &CommunServer::incomingBlockData, &agent,
        [&received](quint64, quint64, QByteArray bytes) { received << QString::fromUtf8(bytes); });
}

void StartWorkerToward(CommunClientWork& work, QThread& thread, quint16 port) {
    CommunAttribute attribute;
    attribute.setProtocolType(2);
    attribute.setDestSvrNameIp("127.0.0.1");
    attribute.setDestPort(port);
    work.SetCommunAttribute(attribute);
    work.moveToThread(&thread);
    thread.start();
}

// The agent is down while commands are produced: they wait in the buffer and
// reach the agent in order once it is back.
TEST(CommunClientWork, BuffersWhileDisconnectedAndDeliversInOrderAfterReconnect) {
    ReservedPort port;

    QThread thread;
    CommunClientWork work;
    StartWorkerToward(work, thread, port.port());
    for (int i = 0; i < 20; ++i) {
        QMetaObject::invokeMethod(&work, "onRequestData", Qt::QueuedConnection,
                                  Q_ARG(QByteArray, QByteArray::number(i)));
    }
    // Every frame has reached the worker while nothing listens.
    QMetaObject::invokeMethod(
        &work, [] {}, Qt::BlockingQueuedConnection);

    CommunServer agent;
    QStringList received;
    RecordFrames(agent, received);
    ASSERT_TRUE(agent.StartOnDescriptor(port.Listen()));
    EXPECT_TRUE(QTest::qWaitFor([&received] { return received.size() == 20; }, 10000));
    for (int i = 0; i < received.size(); ++i) {
        EXPECT_EQ(received.at(i), QString::number(i));
    }
    thread.quit();
    thread.wait();
}
// Frames handed from another thread while the worker is busy go over in
// batches; none is lost, doubled or overtaken on the way.
TEST(CommunClientWork, FramesPostedFromAnotherThreadArriveOnceEachInOrder) {
    ReservedPort port;
    CommunServer agent;
    QStringList received;
    RecordFrames(agent, received);
    ASSERT_TRUE(agent.StartOnDescriptor(port.Listen()));

    QThread thread;
    CommunClientWork work;
    StartWorkerToward(work, thread, port.port());
    // The first frame opens the connection, so that the rest is not held in
    // the bounded buffer of an outage.
    work.Post(QByteArray::number(0));
    ASSERT_TRUE(QTest::qWaitFor([&received] { return received.size() == 1; }, 10000));
    constexpr int kFrames = 5000;
    for (int i = 1; i < kFrames; ++i) {
        work.Post(QByteArray::number(i));
    }
    EXPECT_TRUE(QTest::qWaitFor([&received] { return received.size() >= kFrames; }, 10000));
    ASSERT_EQ(received.size(), kFrames);
    for (int i = 0; i < kFrames; ++i) {
        ASSERT_EQ(received.at(i), QString::number(i));
    }
    thread.quit();
    thread.wait();
}

QByteArray RunOf(const QString& planUuid, const QString& due) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(600));
    command->setPlanUuid(planUuid);
    RequestTriggerExecuteInfoData data;
    data.setNextStartTime(due);
    CommandBuilder::DataToBytearray(&data, static_cast<RequestCommand*>(command.get())->getRfrnRequestData());
    return CommandBuilder::CommandToBytearray(command.get());
}

// The agent answers one of two runs and goes: the other goes out again, once,
// to the agent that comes back, with a line naming it; the answered one not.
TEST(CommunClientWork, ARunTheAgentNeverAnsweredIsSentAgainWhenItIsBack) {
    ReservedPort port;
    const quint16 number = port.port();
    LogCapture log;
    QThread thread;
    CommunClientWork work;
    auto first = std::make_unique<CommunServer>();
    QStringList received;
    QObject::connect(first.get(), &CommunServer::incomingBlockData, first.get(),
                     [&](quint64, quint64 connection, QByteArray bytes) {
                         std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
                         received << command->getPlanUuid();
                         if (command->getPlanUuid() == "answered") {
                             ResultCommand result;
                             result.GetRequestCommandInfo(*command);
                             first->SendResult(connection, CommandBuilder::CommandToBytearray(&result));
                         }
                     });
    ASSERT_TRUE(first->StartOnDescriptor(port.Listen()));
    QSignalSpy answers(&work, &CommunClientWork::returnResult);
    StartWorkerToward(work, thread, number);
    work.Post(RunOf("unanswered", "2026-03-10 10:00:00"));
    work.Post(RunOf("answered", "2026-03-10 10:00:00"));
    ASSERT_TRUE(QTest::qWaitFor([&received] { return received.size() == 2; }, 10000));
    // The answer has reached the worker before the agent goes.
    ASSERT_TRUE(QTest::qWaitFor([&answers] { return answers.count() == 1; }, 10000));
    first.reset();

    AgentStandIn back(number);
    EXPECT_TRUE(back.WaitFor(600, "unanswered", 10000));
    work.Post(RunOf("later", "2026-03-10 10:01:00"));
    EXPECT_TRUE(back.WaitFor(600, "later", 10000));
    EXPECT_EQ(back.Received(), (QStringList{"600 unanswered", "600 later"}));
    EXPECT_EQ(log.CountContaining("The run of plan[unanswered] due [2026-03-10 10:00:00] got no answer"), 1);
    EXPECT_EQ(log.CountContaining("got no answer"), 1);
    thread.quit();
    thread.wait();
}
} // namespace
