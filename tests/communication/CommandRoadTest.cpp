// The whole road of plan commands and scheduled runs inside one process: the
// task scheduler with its real managers, a stand-in agent and plan clients on
// loopback ports the system chose.
#include "support/AgentStandIn.h"
#include "support/ClockShift.h"
#include "support/LogCapture.h"
#include "support/PlanClient.h"
#include "support/ServiceFolder.h"
#include "support/TriggerBuilder.h"

#include "communication/SchedulerClientCommunManager.h"
#include "framework/CommandBuilder.h"
#include "framework/ConfigReader.h"
#include "framework/FrameReader.h"
#include "framework/RequestCommand.h"
#include "scheduler/TaskScheduler.h"
#include "store/SchedulerDataStoreManager.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

#include <log4cpp/Priority.hh>

#include <gtest/gtest.h>

#include <memory>

namespace {
class CommandRoad : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(scheduler.Init(folder.Dir()));
        ASSERT_TRUE(scheduler.Start());
    }
    void TearDown() override {
        scheduler.Stop();
        scheduler.UnInit();
        ConfigReader::ResetToDefaults();
        QCoreApplication::sendPostedEvents();
    }

    static int RegisteredPlans() {
        QMutexLocker locker(SchedulerDataStoreManager::GetTriggerObjectMutex());
        return SchedulerDataStoreManager::GetTriggerObjectHash()->size();
    }

    ServiceFolder folder;
    AgentStandIn agent{folder.agentPort()};
    LogCapture log;
    TaskScheduler scheduler{nullptr};
};

TEST_F(CommandRoad, AddedPlanRunsAndIsDeleted) {
    // A plan without a start time starts when it is first polled, and a poll
    // runs it while that minute lasts: the test starts early in a minute, so
    // that a slow machine does not carry the second poll into the next one.
    const QDateTime now = Clock::now();
    ClockShift early(now.addSecs(5 - now.time().second()));
    PlanClient client(scheduler.commandServerPort());
    client.SendNewPlan("once", MakeAttribute({1}));
    EXPECT_EQ(client.NextResult(), 0);
    EXPECT_TRUE(agent.WaitFor(600, "once", 10000));
    EXPECT_TRUE(agent.WaitFor(601, "once", 10000));
    EXPECT_TRUE(
        QTest::qWaitFor([this] { return log.CountContaining("Client request command[600#") > 0; }, 10000));

    client.SendNewPlan("once", MakeAttribute({1}));
    EXPECT_EQ(client.NextResult(), 1);
    client.SendDeletePlan("once");
    EXPECT_EQ(client.NextResult(), 0);
    EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject("once"), nullptr);
    client.SendDeletePlan("once");
    EXPECT_EQ(client.NextResult(), 1);
}

TEST_F(CommandRoad, ModifyRegistersAndReplacesTheFire) {
    PlanClient client(scheduler.commandServerPort());
    client.SendModifyPlan("m", MakeAttribute({2, "2026-01-01 03:00:00"}));
    EXPECT_EQ(client.NextResult(), 0);
    ASSERT_NE(SchedulerDataStoreManager::GetTriggerObject("m"), nullptr);
    // A calendar plan turned into an event plan keeps no calendar fire.
    client.SendModifyPlan("m", MakeAttribute({258}));
    EXPECT_EQ(client.NextResult(), 0);
    EXPECT_TRUE(scheduler.TriggerEvent(258));
    EXPECT_TRUE(agent.WaitFor(600, "m", 10000));
}

struct Impossible {
    const char* name;
    TriggerDefinition definition;
    const char* fault;
};

// A definition that could never be scheduled is answered 1 with one line
// naming the plan and the field, and changes nothing, for a new plan as for a
// modified one. A plan that is merely over is still accepted.
TEST_F(CommandRoad, ImpossibleDefinitionsAreRefusedAtTheDoor) {
    const Impossible cases[] = {
        {"no-such-day", {1, "2026-02-30 25:61:00"}, "start time \"2026-02-30 25:61:00\" is not a valid"},
        {"word-end", {2, "2026-01-01 03:00:00", "soon"}, "end time \"soon\" is not a valid"},
        {"month-day-99", {4, "", "", 0, 0, "", "", "99"}, "month days \"99\" hold \"99\""},
        {"week-day-8", {3, "", "", 0, 0, "8"}, "week days \"8\" hold \"8\""},
        {"type-9", {9}, "trigger type 9 has no fire"},
        {"type-0", {0}, "trigger type 0 has no fire"},
        {"endless", {2, "", "", 3162240001ULL}, "interval 3162240001 s is beyond a century"},
    };
    PlanClient client(scheduler.commandServerPort());
    client.SendNewPlan("kept", MakeAttribute({2, "2026-01-01 03:00:00"}));
    ASSERT_EQ(client.NextResult(), 0);
    for (const Impossible& c : cases) {
        SCOPED_TRACE(c.name);
        log.Clear();
        client.SendNewPlan(c.name, MakeAttribute(c.definition));
        EXPECT_EQ(client.NextResult(), 1);
        EXPECT_EQ(SchedulerDataStoreManager::GetTriggerObject(c.name), nullptr);
        client.SendModifyPlan("kept", MakeAttribute(c.definition));
        EXPECT_EQ(client.NextResult(), 1);
        EXPECT_EQ(log.CountContaining(QString("The plan[%1] command[200#").arg(c.name)), 1);
        EXPECT_EQ(log.CountContaining(QString("is refused: %1").arg(c.fault)), 2)
            << log.Messages().join("\n").toStdString();
    }
    TriggerObject* kept = SchedulerDataStoreManager::GetTriggerObject("kept");
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->getObjectTriggerAttribute().getTriggerType(), 2u);

    client.SendNewPlan(QString(256, 'u'), MakeAttribute({257}));
    EXPECT_EQ(client.NextResult(), 1);
    client.SendDeletePlan(QString(256, 'u'));
    EXPECT_EQ(client.NextResult(), 1);
    EXPECT_EQ(log.CountContaining("the plan UUID is 256 bytes long, more than 255"), 2);
    client.SendNewPlan(QString(255, 'u'), MakeAttribute({257}));
    EXPECT_EQ(client.NextResult(), 0);
    client.SendNewPlan("ended", MakeAttribute({1, "2020-01-01 00:00:00"}));
    EXPECT_EQ(client.NextResult(), 0);
}

TEST_F(CommandRoad, UnsupportedCommandsGetNoReply) {
    PlanClient client(scheduler.commandServerPort());
    // Requests are answered in order, so the first reply after the 201 is the
    // new plan's: had the 201 been answered, its reply would come first.
    client.SendCommand(201, "x");
    client.SendNewPlan("after", MakeAttribute({257}));
    EXPECT_EQ(client.NextResult(), 0);
    EXPECT_EQ(log.CountContaining("return pointer is NULL."), 1);
    EXPECT_NE(SchedulerDataStoreManager::GetTriggerObject("after"), nullptr);
}

// Hostile input on the command port: each refused frame gets one line, the
// connection of an oversized frame is closed, and the others are still served.
TEST_F(CommandRoad, BadInputIsRefusedAndNothingIsLost) {
    PlanClient keeper(scheduler.commandServerPort());
    keeper.SendNewPlan("kept", MakeAttribute({257}));
    ASSERT_EQ(keeper.NextResult(), 0);
    const int plansBefore = RegisteredPlans();

    PlanClient silent(scheduler.commandServerPort());
    PlanClient truncated(scheduler.commandServerPort());
    truncated.SendRaw(PlanClient::NewPlanCommand("t", MakeAttribute({257})).left(20));
    PlanClient oversized(scheduler.commandServerPort());
    oversized.SendRaw(QByteArray::fromHex("00200000") + QByteArray(64, 'x'));
    PlanClient random(scheduler.commandServerPort());
    QRandomGenerator generator(7);
    for (int i = 0; i < 20; ++i) {
        QByteArray junk(static_cast<int>(generator.bounded(1, 300)), '\0');
        for (char& byte : junk) {
            byte = static_cast<char>(generator.bounded(256));
        }
        random.SendRaw(FrameReader::Frame(junk));
    }
    EXPECT_TRUE(QTest::qWaitFor([&oversized] { return !oversized.isConnected(); }, 10000));
    EXPECT_TRUE(QTest::qWaitFor(
        [this] {
            return log.Count("Push server request comm command failed in the onProducerPackageCommand.") ==
                   20;
        },
        3000));
    EXPECT_EQ(log.CountContaining("Refused a frame of 2097152 bytes"), 1);

    keeper.SendNewPlan("still-served", MakeAttribute({257}));
    EXPECT_EQ(keeper.NextResult(), 0);
    EXPECT_EQ(RegisteredPlans(), plansBefore + 1);
    EXPECT_TRUE(silent.isConnected());
}

TEST_F(CommandRoad, TwoHundredClientsAtOnce) {
    std::vector<std::unique_ptr<PlanClient>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<PlanClient>(scheduler.commandServerPort(), false));
    }
    ASSERT_TRUE(QTest::qWaitFor(
        [&clients] {
            return std::all_of(clients.begin(), clients.end(),
                               [](const auto& c) { return c->isConnected(); });
        },
        10000));
    for (int i = 0; i < 200; ++i) {
        clients[static_cast<size_t>(i)]->SendNewPlan(QString("many-%1").arg(i), MakeAttribute({259}));
    }
    int answered = 0;
    for (auto& client : clients) {
        answered += client->NextResult() == 0 ? 1 : 0;
    }
    EXPECT_EQ(answered, 200);
    EXPECT_EQ(RegisteredPlans(), 200);
}

TEST(ClientLink, SortsCommandsOntoTheTwoWorkers) {
    LogCapture log;
    SchedulerClientCommunManager link;
    CommunAttribute attribute;
    attribute.setProtocolType(2);
    attribute.setDestSvrNameIp("127.0.0.1");
    link.SetCommunAttribute(attribute);
    QSignalSpy refresh(&link, &SchedulerClientCommunManager::refreshRequestCommand);
    QSignalSpy control(&link, &SchedulerClientCommunManager::controlRequestCommand);
    for (quint64 type : {601ULL, 600ULL, 777ULL}) {
        std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(type));
        command->getObjectCommunAttribute() = attribute;
        link.onRequestCommand(command.get());
    }
    EXPECT_EQ(refresh.count(), 1);
    EXPECT_EQ(control.count(), 2);

    std::unique_ptr<CommCommand> elsewhere(CommandBuilder::BuilderCommand(600));
    elsewhere->getObjectCommunAttribute().setProtocolType(2);
    elsewhere->getObjectCommunAttribute().setDestSvrNameIp("10.0.0.1");
    link.onRequestCommand(elsewhere.get());
    link.onRequestCommand(nullptr);
    // A frame the agent would refuse, closing the link, never reaches it.
    std::unique_ptr<CommCommand> huge(CommandBuilder::BuilderCommand(601));
    huge->getObjectCommunAttribute() = attribute;
    huge->setPlanUuid(QString(600 * 1024, 'u'));
    link.onRequestCommand(huge.get());
    EXPECT_EQ(refresh.count(), 1);
    EXPECT_EQ(log.CountContaining("is larger than a frame may be (1048576 bytes) and is not sent"), 1);
    EXPECT_EQ(control.count(), 2);
    EXPECT_EQ(log.CountContaining("CommunAttribute does not match in the onRequestCommand."), 1);
    EXPECT_TRUE(
        log.Has(log4cpp::Priority::WARN, "The client request command into parameter pointer is null."));
    link.Stop();
    link.Stop();
    link.UnInit();
    link.UnInit();
}
} // namespace
