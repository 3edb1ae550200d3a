#include "LocalTime.h"

namespace {
const QString kDateFormat = QStringLiteral("yyyy-MM-dd");
const QString kTimeFormat = QStringLiteral("hh:mm:ss");
constexpr int kTextLength = 19;
} // namespace

QDateTime LocalTime::At(const QDate& date, const QTime& time) {
    const QDateTime local(date, time);
    if (local.isValid() || !date.isValid() || !time.isValid()) {
        return local;
    }
    // In a gap: read the wall-clock time with the offset in force before it.
    const int offsetBefore = QDateTime(date.addDays(-1), time).offsetFromUtc();
    return QDateTime(date, time, Qt::OffsetFromUTC, offsetBefore).toLocalTime();
}

QDateTime LocalTime::Parse(const QString& text) {
    if (!IsWellFormed(text)) {
        return QDateTime();
    }
    return At(QDate::fromString(text.left(10), kDateFormat), TimeOfDay(text));
}

QTime LocalTime::TimeOfDay(const QString& text) {
    return QTime::fromString(text.mid(11), kTimeFormat);
}

bool LocalTime::IsWellFormed(const QString& text) {
    return text.size() == kTextLength && text.at(10) == ' ' &&
           QDate::fromString(text.left(10), kDateFormat).isValid() && TimeOfDay(text).isValid();
}

QString LocalTime::Format(const QDateTime& t) {
    return t.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}
