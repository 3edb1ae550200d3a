#include "RunTally.h"

#include <algorithm>

// The answers an alert watches are there from the start, so that their first
// increase is seen as one.
RunTally::RunTally() {
    m_counts.answers = {{"ok", 0}, {"refused", 0}};
}

void RunTally::NoteOutcome(const QString& outcome) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts.runsByOutcome[outcome];
}

void RunTally::NoteAnswer(quint64 result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts.answers[result == 0 ? "ok" : "refused"];
}

void RunTally::NoteMissed(const QString& reason) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts.missedByReason[reason];
}

// A run handed before its due start (a clock that stepped back) counts as on
// time.
void RunTally::NoteLateness(qint64 msecs) {
    const double secs = static_cast<double>(std::max<qint64>(msecs, 0)) / 1000.0;
    const auto bucket = std::lower_bound(kLatenessBounds.begin(), kLatenessBounds.end(), secs);
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts.lateness[static_cast<size_t>(bucket - kLatenessBounds.begin())];
    m_counts.latenessSumSecs += secs;
    ++m_counts.latenessCount;
}

RunTally::Counts RunTally::Take() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}
