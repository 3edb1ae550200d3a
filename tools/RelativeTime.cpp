#include "RelativeTime.h"

#include <QRegularExpression>

namespace {
constexpr qint64 kMinute = 60;
constexpr qint64 kHour = 60 * kMinute;
constexpr qint64 kDay = 24 * kHour;

QString Days(qint64 days) {
    return QString("%1 day%2").arg(days).arg(days == 1 ? "" : "s");
}
} // namespace

QString RelativeTime::Span(qint64 msecs) {
    const qint64 secs = qAbs(msecs) / 1000;
    if (secs < kMinute) {
        return QString("%1 s").arg(secs);
    }
    if (secs < kHour) {
        return QString("%1min").arg(secs / kMinute);
    }
    if (secs < kDay) {
        const qint64 minutes = secs % kHour / kMinute;
        return minutes == 0 ? QString("%1h").arg(secs / kHour)
                            : QString("%1h %2min").arg(secs / kHour).arg(minutes);
    }
    // Beyond two days the hours no longer matter to a reader.
    if (secs < 2 * kDay && secs % kDay >= kHour) {
        return QString("%1 %2h").arg(Days(secs / kDay)).arg(secs % kDay / kHour);
    }
    return Days(secs / kDay);
}

bool RelativeTime::ParseSpan(const QString& text, qint64& msecs) {
    const QRegularExpression part(QStringLiteral("\\s*(\\d+)\\s*(s|min|h|days?|d)\\s*"));
    const QString trimmed = text.trimmed();
    msecs = 0;
    int at = 0;
    while (at < trimmed.size()) {
        const QRegularExpressionMatch match =
            part.match(trimmed, at, QRegularExpression::NormalMatch, QRegularExpression::AnchoredMatchOption);
        if (!match.hasMatch()) {
            return false;
        }
        const QString unit = match.captured(2);
        const qint64 seconds = unit == "s" ? 1 : unit == "min" ? kMinute : unit == "h" ? kHour : kDay;
        msecs += match.captured(1).toLongLong() * seconds * 1000;
        at = match.capturedEnd();
    }
    return at > 0;
}

QString RelativeTime::Left(qint64 msecs) {
    return msecs >= 0 ? Span(msecs) + " left" : Span(msecs) + " late";
}

QString RelativeTime::Ago(qint64 msecs) {
    return msecs >= 0 ? Span(msecs) + " ago" : "in " + Span(msecs);
}
