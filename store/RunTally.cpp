#include "RunTally.h"

#include <algorithm>

// The answers an alert watches are there from the start, so that their first
// increase is seen as one.
RunTally::RunTally() {
    m_counts.answers = {{"ok", 0}, {"refused", 0}};
}

namespace {
QString Label(const QString& name) {
    return QString(name).replace(' ', '_');
}
} // namespace

void RunTally::NoteOutcome(RunHistory::Outcome outcome) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_outcomes.at(static_cast<size_t>(outcome));
}

void RunTally::NoteAnswer(quint64 result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts.answers[result == 0 ? "ok" : "refused"];
}

void RunTally::NoteMissed(RunHistory::Reason reason) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_missed.at(static_cast<size_t>(reason));
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
    Counts counts = m_counts;
    for (size_t outcome = 0; outcome < kOutcomes; ++outcome) {
        if (m_outcomes.at(outcome) != 0) {
            const QString name = RunHistory::OutcomeName(static_cast<RunHistory::Outcome>(outcome));
            counts.runsByOutcome[Label(name)] = m_outcomes.at(outcome);
        }
    }
    for (size_t reason = 0; reason < kReasons; ++reason) {
        if (m_missed.at(reason) != 0) {
            const QString name = RunHistory::ReasonName(static_cast<RunHistory::Reason>(reason));
            counts.missedByReason[name.isEmpty() ? QString("unknown") : Label(name)] = m_missed.at(reason);
        }
    }
    return counts;
}
