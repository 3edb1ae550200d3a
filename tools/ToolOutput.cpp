#include "ToolOutput.h"

#include <cstdio>

int ToolOutput::Out(const QString& text, int code) {
    std::fputs(text.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
    return code;
}

int ToolOutput::Fail(const QString& line, int code) {
    std::fputs((line + "\n").toLocal8Bit().constData(), stderr);
    return code;
}

int ToolOutput::UsageError(const QString& subcommand, const QString& line) {
    return Fail(QString("orvelctl %1: %2 (see orvelctl %1 --help)").arg(subcommand, line), 2);
}
