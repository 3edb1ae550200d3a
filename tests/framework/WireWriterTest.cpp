// The writer's bytes are the bytes a QDataStream at the wire's version writes,
// value by value and for whole commands, so a peer that reads with
// QDataStream cannot tell the two apart.
#include "framework/WireWriter.h"
#include "framework/CommandBuilder.h"
#include "framework/RequestCommand.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/ResultCommand.h"
#include "framework/SchedulerPlanData.h"
#include "framework/WireFormat.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>

namespace {
QByteArray ByStream(const std::function<void(QDataStream&)>& write) {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(WireFormat::kStreamVersion);
    write(out);
    return bytes;
}

// The counting pass must agree with the writing pass, or a frame is made too
// small and grows again.
template <typename T> void ExpectSameBytes(const T& value) {
    QByteArray written;
    WireWriter writer(written);
    writer << value;
    WireWriter counter;
    counter << value;
    EXPECT_EQ(written.toHex(), ByStream([&](QDataStream& out) { out << value; }).toHex());
    EXPECT_EQ(counter.size(), written.size());
    EXPECT_EQ(writer.size(), written.size());
}

TEST(WireWriter, WritesEachValueAsTheStreamDoes) {
    for (quint64 value :
         {quint64(0), quint64(1), quint64(0x0102030405060708), std::numeric_limits<quint64>::max()}) {
        ExpectSameBytes(value);
    }
    const QString texts[] = {QString(), QString(""), QString("{5d1e-77}"),
                             QString::fromUtf8("Sicherung \xc3\xbc\xe2\x82\xac \xf0\x9f\x92\xbe")};
    for (const QString& text : texts) {
        ExpectSameBytes(text);
    }
    const QByteArray arrays[] = {QByteArray(), QByteArray(""), QByteArray("pay\0load", 8),
                                 QByteArray(70000, '\xff')};
    for (const QByteArray& bytes : arrays) {
        ExpectSameBytes(bytes);
    }
}

TEST(WireWriter, AppendsAfterWhatTheArrayHolds) {
    QByteArray bytes("head");
    WireWriter(bytes) << quint64(7) << QString("x");
    EXPECT_EQ(bytes.toHex(), QByteArray("head").toHex() + "0000000000000007" + "00000002" + "0078");
}

void Fill(CommCommand& command) {
    command.setPlanUuid("{5d1e}");
    command.setTraceFlag("[601#9]");
    command.setTriggerFlag(1);
    command.setTriggerType(3);
    command.getObjectCommunAttribute().setProtocolType(2);
    command.getObjectCommunAttribute().setDestSvrNameIp("127.0.0.1");
    command.getObjectCommunAttribute().setDestPort(6061);
}

QByteArray CommandByStream(const CommCommand& command) {
    return ByStream([&](QDataStream& out) {
        out << command.getCommandType();
        command.Write(out);
    });
}

TEST(WireWriter, CommandsAndPayloadsKeepTheirStreamForm) {
    RequestTriggerExecuteInfoData info;
    info.setNextStartTime("2026-03-10 08:00:00");
    info.setTriggerEndFlag(1);
    RequestCommand request(CommandTypes::kTriggerInfo);
    Fill(request);
    ASSERT_TRUE(CommandBuilder::DataToBytearray(&info, request.getRfrnRequestData()));
    EXPECT_EQ(request.getRfrnRequestData(), ByStream([&](QDataStream& out) { info.Write(out); }));
    EXPECT_EQ(CommandBuilder::CommandToBytearray(&request), CommandByStream(request));

    ResultCommand result;
    Fill(result);
    result.setUintResult(1);
    EXPECT_EQ(CommandBuilder::CommandToBytearray(&result), CommandByStream(result));

    // A record without a writer of its own goes through a stream, after
    // whatever the array already holds.
    SchedulerPlanData plan;
    plan.getRfrnSchedulerPlan().setPlanUuid("uuid-1");
    QByteArray bytes("head");
    WireWriter writer(bytes);
    plan.AppendTo(writer);
    const QByteArray streamed = ByStream([&](QDataStream& out) { plan.Write(out); });
    EXPECT_EQ(bytes, "head" + streamed);
    WireWriter counter;
    plan.AppendTo(counter);
    EXPECT_EQ(counter.size(), streamed.size());
}
} // namespace
