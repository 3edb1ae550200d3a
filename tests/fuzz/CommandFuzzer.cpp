// libFuzzer target: the command server's road for untrusted bytes. The input
// is cut into frames as a socket would deliver them, and every frame, as well
// as the raw input, is decoded as a command and as each payload record.
#include "framework/CommCommand.h"
#include "framework/CommandBuilder.h"
#include "framework/FrameReader.h"
#include "framework/RequestNewOperationData.h"
#include "framework/RequestTriggerExecuteInfoData.h"
#include "framework/SchedulerPlanData.h"

#include <cstddef>
#include <cstdint>

namespace {
void Decode(const QByteArray& bytes) {
    CommandBuilder::DestroyCommand(CommandBuilder::BytearrayToCommand(bytes));
    RequestNewOperationData newPlan;
    CommandBuilder::BytearrayToData(bytes, &newPlan);
    SchedulerPlanData plan;
    CommandBuilder::BytearrayToData(bytes, &plan);
    RequestTriggerExecuteInfoData info;
    CommandBuilder::BytearrayToData(bytes, &info);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    Decode(input);
    FrameReader reader;
    // The first byte decides where the stream is cut in two.
    const int cut = size > 0 ? data[0] % (input.size() + 1) : 0;
    reader.Append(input.left(cut));
    reader.Append(input.mid(cut));
    QByteArray payload;
    while (reader.Next(payload)) {
        Decode(payload);
    }
    return 0;
}
