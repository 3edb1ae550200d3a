#include "LocalTime.h"

#include "WallTime.h"

namespace {
constexpr int kTextLength = 19;

// The fixed layout "yyyy-MM-dd hh:mm:ss" is read by hand: Qt's pattern parser
// costs more than the rest of a start-time computation.
bool Number(const QString& text, int from, int digits, int& value) {
    value = 0;
    for (int i = from; i < from + digits; ++i) {
        const ushort c = text.at(i).unicode();
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    return true;
}

bool Fields(const QString& text, QDate& date, QTime& time) {
    if (text.size() != kTextLength || text.at(4) != '-' || text.at(7) != '-' || text.at(10) != ' ' ||
        text.at(13) != ':' || text.at(16) != ':') {
        return false;
    }
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!Number(text, 0, 4, year) || !Number(text, 5, 2, month) || !Number(text, 8, 2, day) ||
        !Number(text, 11, 2, hour) || !Number(text, 14, 2, minute) || !Number(text, 17, 2, second)) {
        return false;
    }
    date = QDate(year, month, day);
    time = QTime(hour, minute, second);
    return date.isValid() && time.isValid();
}

QChar* PutNumber(QChar* out, int value, int digits) {
    for (int divisor = digits == 4 ? 1000 : 10; divisor > 0; divisor /= 10) {
        *out++ = QChar('0' + (value / divisor) % 10);
    }
    return out;
}

// Written in place, with the date's parts taken in one conversion: every
// start time reported goes through here, twice.
QString Text(const QDate& date, const QTime& time) {
    int year = 0, month = 0, day = 0;
    date.getDate(&year, &month, &day);
    if (!date.isValid() || year < 0 || year > 9999) {
        return QDateTime(date, time, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    }
    QString text(kTextLength, Qt::Uninitialized);
    QChar* out = PutNumber(text.data(), year, 4);
    *out++ = QLatin1Char('-');
    out = PutNumber(out, month, 2);
    *out++ = QLatin1Char('-');
    out = PutNumber(out, day, 2);
    *out++ = QLatin1Char(' ');
    out = PutNumber(out, time.hour(), 2);
    *out++ = QLatin1Char(':');
    out = PutNumber(out, time.minute(), 2);
    *out++ = QLatin1Char(':');
    PutNumber(out, time.second(), 2);
    return text;
}
} // namespace

QDateTime LocalTime::Parse(const QString& text) {
    qint64 wall = 0;
    return ParseWall(text, wall) ? WithOffset(WallTime::InstantOf(wall)) : QDateTime();
}

bool LocalTime::ParseWall(const QString& text, qint64& wall) {
    QDate date;
    QTime time;
    if (!Fields(text, date, time)) {
        return false;
    }
    wall = WallTime::Make(date, time.msecsSinceStartOfDay());
    return true;
}

bool LocalTime::IsWellFormed(const QString& text) {
    QDate date;
    QTime time;
    return Fields(text, date, time);
}

QDateTime LocalTime::WithOffset(qint64 msecs) {
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::OffsetFromUTC, WallTime::OffsetAt(msecs));
}

// By hand, as the texts of whole seconds are: in polling mode a start-up may
// write this line for every plan that repeats within the minute.
QString LocalTime::FormatPrecise(qint64 msecs) {
    const int millis = static_cast<int>((msecs % 1000 + 1000) % 1000);
    const QChar digits[] = {QLatin1Char('.'), QChar('0' + millis / 100), QChar('0' + millis / 10 % 10),
                            QChar('0' + millis % 10)};
    return FormatWall(WallTime::Of(msecs)) + QString(digits, 4);
}

QString LocalTime::FormatWall(qint64 wall) {
    return Text(WallTime::DateOf(wall),
                QTime::fromMSecsSinceStartOfDay(static_cast<int>(WallTime::TimeOfDay(wall))));
}

QString LocalTime::FormatAt(qint64 msecs, int offsetSecs) {
    return FormatWall(msecs + offsetSecs * 1000LL);
}

QString LocalTime::Format(const QDateTime& t) {
    return Text(t.date(), t.time());
}
