#include "CommandBuilder.h"

#include "CommandObj.h"
#include "RequestCommand.h"
#include "ResultCommand.h"
#include "WireFormat.h"
#include "WireWriter.h"

#include <QIODevice>

#include <atomic>
#include <cstdio>

namespace {
// Room made before serialising, enough for the usual command (a plan's
// trigger-info is about 300 bytes) and payload; a longer one still grows.
constexpr int kUsualCommandBytes = 512;
constexpr int kUsualDataBytes = 128;

std::atomic<quint64> g_traceSequence{0};

// Made once for every command the service sends: one formatting pass and one
// allocation.
QString NewTraceFlag(quint64 commandType) {
    char text[48];
    const int length =
        std::snprintf(text, sizeof(text), "[%llu#%llu]", static_cast<unsigned long long>(commandType),
                      static_cast<unsigned long long>(++g_traceSequence));
    return QString::fromLatin1(text, length);
}

// Without a trace text: a decoded command reads its own, so making one for it
// would only be thrown away, once for every answer of the agent.
CommCommand* NewCommand(quint64 commandType) {
    if (commandType == 0) {
        return nullptr;
    }
    if (commandType == ResultCommand::kType) {
        return new ResultCommand();
    }
    return new RequestCommand(commandType);
}
} // namespace

CommCommand* CommandBuilder::BuilderCommand(quint64 commandType) {
    CommCommand* command = NewCommand(commandType);
    if (command != nullptr) {
        command->setTraceFlag(NewTraceFlag(commandType));
    }
    return command;
}

// The writer grows its array a few bytes at a time, and every command of a
// start-up report would otherwise move through five reallocations; the spare
// room is given back because the bytes may wait in the link's queue a while.
QByteArray CommandBuilder::CommandToBytearray(const CommCommand* command) {
    QByteArray bytes;
    if (command == nullptr) {
        return bytes;
    }
    bytes.reserve(kUsualCommandBytes);
    WireWriter out(bytes);
    out << command->getCommandType();
    command->AppendTo(out);
    bytes.squeeze();
    return bytes;
}

CommCommand* CommandBuilder::BytearrayToCommand(QByteArray bytes) {
    QDataStream in(&bytes, QIODevice::ReadOnly);
    in.setVersion(WireFormat::kStreamVersion);
    quint64 commandType = 0;
    in >> commandType;
    if (in.status() != QDataStream::Ok) {
        return nullptr;
    }
    CommCommand* command = NewCommand(commandType);
    if (command == nullptr) {
        return nullptr;
    }
    command->Read(in);
    if (in.status() != QDataStream::Ok || !in.atEnd()) {
        DestroyCommand(command);
        return nullptr;
    }
    return command;
}

bool CommandBuilder::DataToBytearray(const CommandObj* data, QByteArray& bytes) {
    if (data == nullptr) {
        return false;
    }
    bytes.clear();
    bytes.reserve(kUsualDataBytes);
    WireWriter out(bytes);
    data->AppendTo(out);
    return true;
}

bool CommandBuilder::BytearrayToData(const QByteArray& bytes, CommandObj* data) {
    if (data == nullptr) {
        return false;
    }
    QDataStream in(bytes);
    in.setVersion(WireFormat::kStreamVersion);
    data->Read(in);
    return in.status() == QDataStream::Ok && in.atEnd();
}

void CommandBuilder::DestroyCommand(CommCommand* command) {
    delete command;
}
