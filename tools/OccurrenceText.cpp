#include "OccurrenceText.h"

#include "RelativeTime.h"

#include <QStringList>

QString OccurrenceText::Outcome(const RunHistoryReader::Row& row) {
    return RunHistory::OutcomeName(row.outcome);
}

QString OccurrenceText::Reason(const RunHistoryReader::Row& row) {
    QStringList parts;
    if (row.reason == RunHistory::Reason::ServiceDown && row.handedMSecs >= 0) {
        parts << "down " + RelativeTime::Span(row.handedMSecs - row.dueMSecs);
    } else if (row.reason != RunHistory::Reason::None) {
        parts << RunHistory::ReasonName(row.reason);
    }
    if (row.outcome == RunHistory::Outcome::CaughtUp && row.detail > 0) {
        parts << "spread " + RelativeTime::Span(row.detail);
    }
    if (row.merged > 0) {
        parts << QString("merged %1").arg(row.merged);
    }
    return parts.join(", ");
}

QString OccurrenceText::Summary(const RunHistoryReader::Row& row) {
    const QString reason = Reason(row);
    return reason.isEmpty() ? Outcome(row) : QString("%1 (%2)").arg(Outcome(row), reason);
}

QString OccurrenceText::Result(const RunHistoryReader::Row& row) {
    if (row.handedMSecs < 0) {
        return "-";
    }
    if (!row.hasResult) {
        return "waiting";
    }
    if (row.result == RunHistory::kNoAnswer) {
        return "no answer";
    }
    if (row.result == 0) {
        return "ok";
    }
    return row.result == 1 ? QString("refused") : QString("failed (%1)").arg(row.result);
}

QString OccurrenceText::Late(const RunHistoryReader::Row& row) {
    if (row.handedMSecs < 0) {
        return "-";
    }
    const qint64 late = row.handedMSecs - row.dueMSecs;
    return qAbs(late) < 1000 ? QString("%1 ms").arg(late) : RelativeTime::Span(late);
}
