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

QByteArray CommandBuilder::CommandToBytearray(const CommCommand* command) {
    QByteArray bytes;
    if (command == nullptr) {
        return bytes;
    }
    WireWriter::Fill(bytes, [command](WireWriter& out) {
        out << command->getCommandType();
        command->AppendTo(out);
    });
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
    WireWriter::Fill(bytes, [data](WireWriter& out) { data->AppendTo(out); });
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
