#pragma once

#include "RunHistory.h"

#include <QString>

#include <array>
#include <map>
#include <mutex>

// Counts over the life of the service: runs by outcome, the agent's answers,
// missed runs by reason and how late runs went to the agent after their due
// start. What counts is
// told by whoever learns of it; the counts only grow.
//
// Safe from any thread.
class RunTally {
public:
    // Upper bounds of the lateness buckets in seconds; a last bucket takes the
    // rest.
    static constexpr std::array<double, 10> kLatenessBounds{0.05, 0.1, 0.25, 0.5, 1, 5, 30, 60, 300, 3600};

    struct Counts {
        std::map<QString, quint64> runsByOutcome;
        std::map<QString, quint64> answers; // "ok", "refused"
        std::map<QString, quint64> missedByReason;
        // Per bucket, not summed; the last is above every bound.
        std::array<quint64, kLatenessBounds.size() + 1> lateness{};
        double latenessSumSecs = 0;
        quint64 latenessCount = 0;
    };

    RunTally();

    void NoteOutcome(RunHistory::Outcome outcome);
    void NoteAnswer(quint64 result);
    void NoteMissed(RunHistory::Reason reason);
    void NoteLateness(qint64 msecs);
    Counts Take() const;

private:
    // Counted by number, named only when taken: a first poll of a million
    // plans notes a million outcomes.
    static constexpr size_t kOutcomes = static_cast<size_t>(RunHistory::Outcome::Deleted) + 1;
    static constexpr size_t kReasons = static_cast<size_t>(RunHistory::Reason::RepeatedHour) + 1;

    mutable std::mutex m_mutex;
    Counts m_counts;
    std::array<quint64, kOutcomes> m_outcomes{};
    std::array<quint64, kReasons> m_missed{};
};
