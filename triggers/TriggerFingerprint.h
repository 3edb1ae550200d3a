#pragma once

#include <QtGlobal>

#include <vector>

class TriggerAttribute;
class TriggerObject;

// A digest of every field of a trigger definition. What the run state kept of
// a plan is only taken back when the plan's definition still has the digest
// the progress was computed from.
class TriggerFingerprint {
public:
    // Never 0, which stands for "unknown".
    static quint64 Of(const TriggerAttribute& attribute);
    // Gives each object the digest of its definition, on two threads: a
    // start-up loads a million plans, and digesting them takes a second.
    // Nothing else may change the objects meanwhile.
    static void SetEach(const std::vector<TriggerObject*>& objects);
};
