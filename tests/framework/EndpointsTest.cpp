// The request queue and the TCP endpoints, over real sockets on loopback.
#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/CommunClientWork.h"
#include "framework/CommunProducerConsumerManager.h"
#include "framework/CommunServer.h"
#include "framework/FrameReader.h"
#include "framework/SocketCommandPackage.h"
#include "support/ReservedPort.h"

#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

namespace {
CommCommand* NewCommand(const QString& planUuid) {
    CommCommand* command = CommandBuilder::BuilderCommand(200);
    command->setPlanUuid(planUuid);
    return command;
}

void Release(SocketCommandPackage* package) {
    CommandBuilder::DestroyCommand(package->getCommand());
    delete package;
}

TEST(ProducerConsumerQueue, RefusesWhileNotRunningAndNullCommands) {
    CommunProducerConsumerManager queue;
    CommCommand* command = NewCommand("p");
    EXPECT_FALSE(CommunProducerConsumerManager::RequestCommunCommand(command, nullptr, 2, 3));
    ASSERT_TRUE(queue.Start());
    EXPECT_FALSE(CommunProducerConsumerManager::RequestCommunCommand(nullptr, nullptr, 2, 3));
    queue.Stop();
    queue.Stop();
    queue.UnInit();
    CommandBuilder::DestroyCommand(command);
}

TEST(ProducerConsumerQueue, DeliversPackagesInOrderOnItsOwnThread) {
    qRegisterMetaType<SocketCommandPackage*>("SocketCommandPackage*");
    CommunProducerConsumerManager queue;
    ASSERT_TRUE(queue.Init());
    ASSERT_TRUE(queue.Start());
    QStringList received;
    QObject::connect(&queue, &CommunProducerConsumerManager::dealQueuePackageCommand, &queue,
                     [&received](SocketCommandPackage* package) {
                         EXPECT_EQ(QThread::currentThread(), qApp->thread());
                         EXPECT_EQ(package->getPackageType(), 3u);
                         received << package->getCommand()->getPlanUuid();
                         Release(package);
                     });
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(CommunProducerConsumerManager::RequestCommunCommand(NewCommand(QString::number(i)),
                                                                        nullptr, 2, 3));
    }
    EXPECT_TRUE(QTest::qWaitFor([&received] { return received.size() == 100; }, 10000));
    for (int i = 0; i < received.size(); ++i) {
        EXPECT_EQ(received.at(i), QString::number(i));
    }
    queue.Stop();
    queue.UnInit();
}

TEST(CommunServer, FramesGoBothWaysAndOversizedFramesCloseTheConnection) {
    CommunServer server;
    ASSERT_TRUE(server.Init(2));
    ASSERT_TRUE(server.Start("127.0.0.1", 0));
    QObject::connect(&server, &CommunServer::incomingBlockData, &server,
                     [&server](quint64 commType, QIODevice* socket, QByteArray bytes) {
                         EXPECT_EQ(commType, 2u);
                         server.SendResult(socket, "echo:" + bytes);
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

TEST(CommunServer, RefusesNonLoopbackAddressesUnlessAllowed) {
    CommunServer server;
    EXPECT_FALSE(server.Start("0.0.0.0", 0));
    EXPECT_FALSE(server.Init(1));
}

// The agent is down while commands are produced: they wait in the buffer and
// reach the agent in order once it is back.
TEST(CommunClientWork, BuffersWhileDisconnectedAndDeliversInOrderAfterReconnect) {
    ReservedPort port;

    QThread thread;
    CommunClientWork work;
    CommunAttribute attribute;
    attribute.setProtocolType(2);
    attribute.setDestSvrNameIp("127.0.0.1");
    attribute.setDestPort(port.port());
    work.SetCommunAttribute(attribute);
    work.moveToThread(&thread);
    thread.start();
    for (int i = 0; i < 20; ++i) {
        QMetaObject::invokeMethod(&work, "onRequestData", Qt::QueuedConnection,
                                  Q_ARG(QByteArray, QByteArray::number(i)));
    }
    // Every frame has reached the worker while nothing listens.
    QMetaObject::invokeMethod(
        &work, [] {}, Qt::BlockingQueuedConnection);

    CommunServer agent;
    QStringList received;
    QObject::connect(
        &agent, &CommunServer::incomingBlockData, &agent,
        [&received](quint64, QIODevice*, QByteArray bytes) { received << QString::fromUtf8(bytes); });
    ASSERT_TRUE(agent.StartOnDescriptor(port.Listen()));
    EXPECT_TRUE(QTest::qWaitFor([&received] { return received.size() == 20; }, 10000));
    for (int i = 0; i < received.size(); ++i) {
        EXPECT_EQ(received.at(i), QString::number(i));
    }
    thread.quit();
    thread.wait();
}
} // namespace
