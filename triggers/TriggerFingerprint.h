#pragma once

#include <QtGlobal>

class TriggerAttribute;

// A digest of every field of a trigger definition. What the run state kept of
// a plan is only taken back when the plan's definition still has the digest
// the progress was computed from.
class TriggerFingerprint {
public:
    // Never 0, which stands for "unknown".
    static quint64 Of(const TriggerAttribute& attribute);
};
