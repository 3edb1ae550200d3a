#pragma once

#include <QString>

// Texts that come from outside (clients, the database) before they go into a
// log line: plan UUIDs, trace texts, names, stored field values. A log line is
// one line whatever a sender puts into such a text, and one text can add at
// most kMaxChars characters to it.
class LogText {
public:
    static constexpr int kMaxChars = 128;

    // Control characters become escapes (a newline "\n", others "\xHH" or
    // "\uHHHH"); a text longer than kMaxChars is cut there and ends in "…".
    static QString Outside(const QString& text);
    // Only the control characters escaped, for a whole line; a line without
    // any comes back unchanged and uncopied.
    static QString OneLine(const QString& line);
};
