// Records and commands survive the wire form unchanged, and no byte sequence
// makes the decoder crash.
#include "framework/CommandBuilder.h"
#include "framework/FrameReader.h"
#include "framework/RequestCommand.h"
#include "framework/RequestNewOperationData.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"
#include "framework/WireFormat.h"
#include "support/TriggerBuilder.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {
using CommandPtr = std::unique_ptr<CommCommand, void (*)(CommCommand*)>;

CommandPtr Own(CommCommand* command) {
    return CommandPtr(command, &CommandBuilder::DestroyCommand);
}

TriggerAttribute SampleAttribute() {
    TriggerAttribute attribute =
        MakeAttribute({4, "2026-01-01 10:00:00", "2027-01-01 00:00:00", 600, 3600, "1,3", "6,12", "1,15", 1});
    attribute.setTriggerEndFlag(1);
    return attribute;
}

template <typename Record> Record RoundTrip(const Record& record) {
    QByteArray bytes;
    EXPECT_TRUE(CommandBuilder::DataToBytearray(&record, bytes));
    Record copy;
    EXPECT_TRUE(CommandBuilder::BytearrayToData(bytes, &copy));
    return copy;
}

TEST(RecordCodec, TriggerAttributeRoundTrips) {
    EXPECT_TRUE(RoundTrip(SampleAttribute()) == SampleAttribute());
}

TEST(RecordCodec, PayloadsRoundTrip) {
    RequestTriggerExecuteInfoData info;
    info.setNextStartTime("2026-03-10 08:00:00");
    info.setTriggerEndFlag(1);
    const RequestTriggerExecuteInfoData infoCopy = RoundTrip(info);
    EXPECT_EQ(infoCopy.getNextStartTime(), info.getNextStartTime());
    EXPECT_EQ(infoCopy.getTriggerEndFlag(), 1u);

    RequestNewOperationData newPlan;
    newPlan.setPlanName("Nightly");
    newPlan.setTriggerAttribute(SampleAttribute());
    const RequestNewOperationData newPlanCopy = RoundTrip(newPlan);
    EXPECT_EQ(newPlanCopy.getPlanName(), "Nightly");
    EXPECT_TRUE(newPlanCopy.getTriggerAttribute() == SampleAttribute());

    SchedulerPlanData plan;
    plan.getRfrnSchedulerPlan().setPlanUuid("uuid-1");
    plan.getRfrnSchedulerPlan().setPlanName("Weekly");
    plan.getRfrnSchedulerPlan().getObjectTriggerAttribute() = SampleAttribute();
    const SchedulerPlanData planCopy = RoundTrip(plan);
    EXPECT_EQ(planCopy.getRfrnSchedulerPlan().getPlanUuid(), "uuid-1");
    EXPECT_EQ(planCopy.getRfrnSchedulerPlan().getPlanName(), "Weekly");
    EXPECT_TRUE(planCopy.getRfrnSchedulerPlan().getObjectTriggerAttribute() == SampleAttribute());
}

TEST(RecordCodec, TrailingOrMissingBytesAreRefused) {
    QByteArray bytes;
    RequestTriggerExecuteInfoData info;
    CommandBuilder::DataToBytearray(&info, bytes);
    RequestTriggerExecuteInfoData copy;
    EXPECT_FALSE(CommandBuilder::BytearrayToData(bytes + "x", &copy));
    EXPECT_FALSE(CommandBuilder::BytearrayToData(bytes.left(bytes.size() - 1), &copy));
}

struct CommandCase {
    const char* name;
    quint64 type;
};

class CommandCodec : public ::testing::TestWithParam<CommandCase> {};

TEST_P(CommandCodec, RoundTripsEveryField) {
    CommandPtr command = Own(CommandBuilder::BuilderCommand(GetParam().type));
    ASSERT_TRUE(command);
    command->setPlanUuid("{5d1e}");
    command->setTriggerFlag(1);
    command->setTriggerType(3);
    command->getObjectCommunAttribute().setProtocolType(2);
    command->getObjectCommunAttribute().setDestSvrNameIp("127.0.0.1");
    command->getObjectCommunAttribute().setDestPort(6061);
    if (auto* request = dynamic_cast<RequestCommand*>(command.get())) {
        request->getRfrnRequestData() = QByteArray("payload\0bytes", 13);
    }
    if (auto* result = dynamic_cast<ResultCommand*>(command.get())) {
        result->setUintResult(1);
    }
    CommandPtr copy =
        Own(CommandBuilder::BytearrayToCommand(CommandBuilder::CommandToBytearray(command.get())));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getCommandType(), GetParam().type);
    EXPECT_EQ(copy->getPlanUuid(), "{5d1e}");
    EXPECT_EQ(copy->getTraceFlag(), command->getTraceFlag());
    EXPECT_EQ(copy->getTriggerFlag(), 1u);
    EXPECT_EQ(copy->getTriggerType(), 3u);
    EXPECT_TRUE(copy->getObjectCommunAttribute() == command->getObjectCommunAttribute());
    if (auto* request = dynamic_cast<RequestCommand*>(copy.get())) {
        EXPECT_EQ(request->getRfrnRequestData(), QByteArray("payload\0bytes", 13));
    }
    if (auto* result = dynamic_cast<ResultCommand*>(copy.get())) {
        EXPECT_EQ(result->getUintResult(), 1u);
    }
}

INSTANTIATE_TEST_SUITE_P(Types, CommandCodec,
                         ::testing::Values(CommandCase{"new_plan", 200}, CommandCase{"delete_plan", 203},
                                           CommandCase{"modify_plan", 204},
                                           CommandCase{"execute_trigger", 600},
                                           CommandCase{"trigger_info", 601}, CommandCase{"result", 2000}),
                         [](const ::testing::TestParamInfo<CommandCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(CommandCodec, BuilderRefusesTypeZeroAndNumbersTraces) {
    EXPECT_EQ(CommandBuilder::BuilderCommand(0), nullptr);
    CommandPtr first = Own(CommandBuilder::BuilderCommand(200));
    CommandPtr second = Own(CommandBuilder::BuilderCommand(200));
    EXPECT_NE(first->getTraceFlag(), second->getTraceFlag());
}

TEST(CommandCodec, ResultCopiesTheRequestIdentity) {
    CommandPtr request = Own(CommandBuilder::BuilderCommand(203));
    request->setPlanUuid("plan-7");
    ResultCommand result;
    result.GetRequestCommandInfo(*request);
    EXPECT_EQ(result.getPlanUuid(), "plan-7");
    EXPECT_EQ(result.getTraceFlag(), request->getTraceFlag());
    EXPECT_EQ(result.getRequestCommandType(), 203u);
    EXPECT_EQ(result.getCommandType(), 2000u);
}

// Every prefix of a valid encoding, every single-bit flip of it and a few
// thousand random blocks either decode into a command or give null.
TEST(CommandDecoding, NeverCrashesOnHostileBytes) {
    CommandPtr command = Own(CommandBuilder::BuilderCommand(204));
    command->setPlanUuid("plan");
    static_cast<RequestCommand*>(command.get())->getRfrnRequestData() = QByteArray(64, 'x');
    const QByteArray valid = CommandBuilder::CommandToBytearray(command.get());
    int decoded = 0;
    for (int length = 0; length < valid.size(); ++length) {
        CommandPtr prefix = Own(CommandBuilder::BytearrayToCommand(valid.left(length)));
        EXPECT_FALSE(prefix) << "prefix of " << length << " bytes";
    }
    for (int bit = 0; bit < valid.size() * 8; ++bit) {
        QByteArray flipped = valid;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
        decoded += Own(CommandBuilder::BytearrayToCommand(flipped)) ? 1 : 0;
    }
    QRandomGenerator random(20261123);
    for (int i = 0; i < 5000; ++i) {
        QByteArray bytes(static_cast<int>(random.bounded(200)), '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random.bounded(256));
        }
        decoded += Own(CommandBuilder::BytearrayToCommand(bytes)) ? 1 : 0;
    }
    // A length field of 0xffffffff with nothing behind it must not allocate.
    QByteArray huge(8, '\0');
    huge[7] = static_cast<char>(200);
    huge.append(QByteArray(4, '\xff'));
    huge.append(QByteArray(4, '\x7f'));
    EXPECT_FALSE(Own(CommandBuilder::BytearrayToCommand(huge)));
    EXPECT_GE(decoded, 0);
}

// A length prefix larger than what is left fails the record at once and
// leaves the stream failed: nothing after it is read as a length.
TEST(CommandDecoding, TextLongerThanTheFrameFailsWithoutReadingOn) {
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out.setVersion(WireFormat::kStreamVersion);
        out << quint64(1) << quint32(0x00200000) << quint32(0x00100000) << QString("tail");
    }
    QDataStream in(bytes);
    in.setVersion(WireFormat::kStreamVersion);
    TriggerAttribute attribute;
    attribute.Read(in);
    EXPECT_EQ(in.status(), QDataStream::ReadPastEnd);
    EXPECT_TRUE(attribute.getStartTime().isEmpty());
    EXPECT_TRUE(attribute.getWeekDays().isEmpty());

    TriggerAttribute fitting = MakeAttribute({3, "2026-01-05 20:00:00", "", 0, 0, "1,3,5"});
    QByteArray fittingBytes;
    ASSERT_TRUE(CommandBuilder::DataToBytearray(&fitting, fittingBytes));
    TriggerAttribute decoded;
    ASSERT_TRUE(CommandBuilder::BytearrayToData(fittingBytes, &decoded));
    EXPECT_EQ(decoded, fitting);
}

// Frames are taken between the two reads as well, so that the second read
// lands behind frames already taken and the rest of one begun.
TEST(FrameReader, ReassemblesFramesSplitAnywhere) {
    const QByteArray stream =
        FrameReader::Frame("first") + FrameReader::Frame("") + FrameReader::Frame("third");
    for (int cut = 0; cut <= stream.size(); ++cut) {
        FrameReader reader;
        QStringList payloads;
        QByteArray payload;
        for (const QByteArray& read : {stream.left(cut), stream.mid(cut)}) {
            reader.Append(read);
            while (reader.Next(payload)) {
                payloads << QString::fromUtf8(payload);
            }
        }
        EXPECT_EQ(payloads, (QStringList{"first", "", "third"})) << "cut at " << cut;
        EXPECT_FALSE(reader.HasPartial()) << "cut at " << cut;
    }
}

TEST(FrameReader, RefusesFramesAboveTheLimit) {
    FrameReader atLimit;
    atLimit.Append(FrameReader::Frame(QByteArray(static_cast<int>(WireFormat::kMaxFramePayload), 'a')));
    QByteArray payload;
    EXPECT_TRUE(atLimit.Next(payload));
    EXPECT_EQ(payload.size(), static_cast<int>(WireFormat::kMaxFramePayload));

    FrameReader over;
    QByteArray header(4, '\0');
    header[1] = 0x10;
    header[3] = 0x01;
    over.Append(header);
    EXPECT_FALSE(over.Next(payload));
    EXPECT_TRUE(over.Failed());
    EXPECT_EQ(over.RefusedLength(), WireFormat::kMaxFramePayload + 1);
}
} // namespace
