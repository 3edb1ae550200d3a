#pragma once

#include "store/RunHistoryReader.h"

#include <QString>

// How orvelctl words an occurrence of the run history.
class OccurrenceText {
public:
    static QString Outcome(const RunHistoryReader::Row& row);
    // Why, in a few words: "down 26h", "clock stepped", "spread 12 s", "merged 4".
    static QString Reason(const RunHistoryReader::Row& row);
    // "caught up (down 26h)", "on time".
    static QString Summary(const RunHistoryReader::Row& row);
    // The agent's answer: "ok", "refused", "failed (3)", "no answer", "waiting", "-".
    static QString Result(const RunHistoryReader::Row& row);
    // "120 ms", "12min"; "-" when nothing was handed.
    static QString Late(const RunHistoryReader::Row& row);
};
