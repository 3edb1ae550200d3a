// libFuzzer target: the command server's road for untrusted bytes. The first
// byte chooses the road the rest takes, so that each run decodes once, as the
// service would:
//   0  cut into frames as a socket would deliver them; each frame is decoded
//      as a command and, for a plan command, its plan data are decoded and
//      checked as at the door;
//   1  the bytes as one command, checked at the door;
//   2-4  the bytes as the payload of a new plan, a modified plan or a
//      trigger-info command.
#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/FrameReader.h"
#include "framework/LogText.h"
#include "framework/RequestNewOperationData.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/SchedulerPlanData.h"
#include "triggers/TriggerCheck.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {
void DecodeCommand(const QByteArray& bytes) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(bytes));
    if (command == nullptr) {
        return;
    }
    LogText::Outside(command->getTraceFlag());
    LogText::OneLine(TriggerCheck::CommandFault(*command));
}

void DecodeFrames(const QByteArray& bytes, uint8_t cutByte) {
    FrameReader reader;
    const int cut = cutByte % (bytes.size() + 1);
    reader.Append(bytes.left(cut));
    reader.Append(bytes.mid(cut));
    QByteArray payload;
    while (reader.Next(payload)) {
        DecodeCommand(payload);
    }
}

template <typename Data> void DecodeData(const QByteArray& bytes) {
    Data data;
    CommandBuilder::BytearrayToData(bytes, &data);
}

void DecodePlan(const QByteArray& bytes) {
    SchedulerPlanData data;
    if (CommandBuilder::BytearrayToData(bytes, &data)) {
        const SchedulerPlan& plan = data.getRfrnSchedulerPlan();
        TriggerCheck::Fault(plan.getPlanUuid(), plan.getObjectTriggerAttribute());
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const QByteArray input(reinterpret_cast<const char*>(data) + 2, static_cast<int>(size - 2));
    switch (data[0] % 5) {
    case 0:
        DecodeFrames(input, data[1]);
        break;
    case 1:
        DecodeCommand(input);
        break;
    case 2:
        DecodeData<RequestNewOperationData>(input);
        break;
    case 3:
        DecodePlan(input);
        break;
    default:
        DecodeData<RequestTriggerExecuteInfoData>(input);
        break;
    }
    return 0;
}
