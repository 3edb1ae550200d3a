#pragma once

#include <QByteArray>

class CommCommand;
class CommandObj;

// Creates, serialises and destroys commands and their payloads. Decoding never
// trusts its input: any byte sequence gives either a command or null.
class CommandBuilder {
public:
    // Command type 2000 gives a ResultCommand, any other non-zero type a
    // RequestCommand; 0 gives null. Each command gets a fresh trace text.
    static CommCommand* BuilderCommand(quint64 commandType);
    static QByteArray CommandToBytearray(const CommCommand* command);
    static CommCommand* BytearrayToCommand(QByteArray bytes);
    static bool DataToBytearray(const CommandObj* data, QByteArray& bytes);
    static bool BytearrayToData(const QByteArray& bytes, CommandObj* data);
    static void DestroyCommand(CommCommand* command);
};
