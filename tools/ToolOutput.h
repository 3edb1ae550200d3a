#pragma once

#include <QString>

// How orvelctl talks to its user: results on standard output, one-line errors
// on standard error.
class ToolOutput {
public:
    static int Out(const QString& text, int code);
    static int Fail(const QString& line, int code);
    // A bad argument: one line naming the subcommand, exit code 2.
    static int UsageError(const QString& subcommand, const QString& line);
};
