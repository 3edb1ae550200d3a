#pragma once

#include <QDateTime>
#include <QString>

// Local wall-clock times of the trigger texts ("yyyy-MM-dd hh:mm:ss").
//
// A text names a reading of the local clock; its instant is WallTime's: the
// first of two in a repeated hour, moved on by the length of a gap in which the
// clock never shows it, instead of an invalid time that would end the trigger.
class LocalTime {
public:
    // The instant with its UTC offset; invalid when the text is not
    // "yyyy-MM-dd hh:mm:ss".
    static QDateTime Parse(const QString& text);
    // The reading as WallTime counts it; false when the text is malformed.
    static bool ParseWall(const QString& text, qint64& wall);
    static bool IsWellFormed(const QString& text);
    static QString Format(const QDateTime& t);
    static QString FormatWall(qint64 wall);
    // The reading of an instant at the UTC offset it had.
    static QString FormatAt(qint64 msecs, int offsetSecs);
    // An instant as a date-time that carries its offset, so that the two
    // readings of a repeated hour stay apart.
    static QDateTime WithOffset(qint64 msecs);
    // An instant's reading to the millisecond, as the error lines give it.
    static QString FormatPrecise(qint64 msecs);
};
