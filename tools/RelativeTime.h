#pragma once

#include <QString>

// Spans of time as people read them in a status table: "45 s", "12min",
// "4h 12min", "1 day 3h", "2 days".
class RelativeTime {
public:
    static QString Span(qint64 msecs);
    // "4h 12min left", or "5min late" for a moment already passed.
    static QString Left(qint64 msecs);
    // "2 days ago", or "in 5min" for a moment still to come.
    static QString Ago(qint64 msecs);
    // Reads a span as Span writes it ("45 s", "4h 12min", "1 day 3h", "2 days";
    // blanks optional, "d" for days); false when the text is none.
    static bool ParseSpan(const QString& text, qint64& msecs);
};
