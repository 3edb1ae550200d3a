// What waits for the agent while it is unreachable.
#include "framework/PendingFrames.h"
#include "framework/CommandBuilder.h"
#include "framework/FrameReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {
struct Command {
    quint64 type;
    const char* plan;
};

QByteArray Payload(const Command& c) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(c.type));
    command->setPlanUuid(c.plan);
    return CommandBuilder::CommandToBytearray(command.get());
}

// "<type> <plan>" of every frame in the order they would go out.
QStringList Drain(PendingFrames& frames) {
    QStringList out;
    while (!frames.Empty()) {
        FrameReader reader;
        reader.Append(frames.TakeFront());
        QByteArray payload;
        EXPECT_TRUE(reader.Next(payload));
        std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(payload));
        out << (command ? QString("%1 %2").arg(command->getCommandType()).arg(command->getPlanUuid())
                        : QString::fromUtf8(payload));
    }
    return out;
}

struct MergeCase {
    const char* name;
    std::vector<Command> pushed;
    QStringList delivered;
    int mergedRuns;
};

class PendingFramesMerge : public ::testing::TestWithParam<MergeCase> {};

TEST_P(PendingFramesMerge, KeepsTheNewestRunAndTriggerInfoPerPlan) {
    PendingFrames frames(100);
    int merged = 0;
    for (const Command& c : GetParam().pushed) {
        merged += frames.Push(Payload(c)).mergedRun ? 1 : 0;
    }
    EXPECT_EQ(merged, GetParam().mergedRuns);
    EXPECT_EQ(Drain(frames), GetParam().delivered);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PendingFramesMerge,
    ::testing::Values(
        MergeCase{"fiveRunsOfOnePlan",
                  {{600, "a"}, {601, "a"}, {600, "a"}, {601, "a"}, {600, "a"}, {600, "a"}, {600, "a"}},
                  {"601 a", "600 a"},
                  4},
        MergeCase{"plansDoNotMergeWithEachOther",
                  {{600, "a"}, {600, "b"}, {601, "b"}, {600, "a"}},
                  {"600 b", "601 b", "600 a"},
                  1},
        MergeCase{
            "otherCommandsAllWait", {{200, "a"}, {200, "a"}, {203, "a"}}, {"200 a", "200 a", "203 a"}, 0},
        MergeCase{"triggerInfoMergesSilently", {{601, "a"}, {601, "a"}}, {"601 a"}, 0}),
    [](const ::testing::TestParamInfo<MergeCase>& info) { return std::string(info.param.name); });

TEST(PendingFrames, TheBoundDropsTheOldestAndForgetsItsKey) {
    PendingFrames frames(3);
    EXPECT_FALSE(frames.Push(Payload({600, "a"})).droppedOldest);
    frames.Push(Payload({600, "b"}));
    frames.Push(Payload({600, "c"}));
    EXPECT_TRUE(frames.Push(Payload({600, "d"})).droppedOldest);
    // "a" was dropped, so a new run of it is no merge.
    EXPECT_FALSE(frames.Push(Payload({600, "a"})).mergedRun);
    EXPECT_EQ(Drain(frames), (QStringList{"600 c", "600 d", "600 a"}));
}

TEST(PendingFrames, BytesThatAreNoCommandWaitAsTheyAre) {
    PendingFrames frames(10);
    frames.Push("x");
    frames.Push("x");
    frames.Push(QByteArray());
    int waiting = 0;
    for (; !frames.Empty(); ++waiting) {
        frames.TakeFront();
    }
    EXPECT_EQ(waiting, 3);
}
} // namespace

namespace {
QByteArray RunFor(const char* plan, const char* due) {
    std::unique_ptr<CommCommand> built(CommandBuilder::BuilderCommand(600));
    auto* command = static_cast<RequestCommand*>(built.get());
    command->setPlanUuid(plan);
    RequestTriggerExecuteInfoData data;
    data.setNextStartTime(due);
    CommandBuilder::DataToBytearray(&data, command->getRfrnRequestData());
    return CommandBuilder::CommandToBytearray(command);
}

// Each replaced run names its own start; the run that waits counts them all.
TEST(PendingFrames, AMergeNamesTheReplacedStartAndCountsWhatTheWaitingRunStandsFor) {
    PendingFrames frames(100);
    const char* dues[] = {"2026-03-10 08:00:00", "2026-03-10 08:01:00", "2026-03-10 08:02:00",
                          "2026-03-10 08:03:00", "2026-03-10 08:04:00"};
    EXPECT_FALSE(frames.Push(RunFor("plan", dues[0])).mergedRun);
    for (int i = 1; i < 5; ++i) {
        const PendingFrames::Outcome outcome = frames.Push(RunFor("plan", dues[i]));
        ASSERT_TRUE(outcome.mergedRun);
        EXPECT_EQ(outcome.mergedDue, dues[i - 1]);
        EXPECT_EQ(outcome.keptDue, dues[i]);
        EXPECT_EQ(outcome.mergedCount, i);
    }
    EXPECT_EQ(frames.Push(RunFor("other", dues[0])).mergedCount, 0);
}
} // namespace
