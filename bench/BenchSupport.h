#pragma once

#include "framework/TriggerAttribute.h"

#include <QString>

// Shared set-up of the benchmarks: plans stored in a database file, and the
// process's resident memory.
class BenchSupport {
public:
    // A calendar definition that never comes due during a benchmark run.
    static TriggerAttribute QuietTrigger(int index);
    static void StorePlans(const QString& path, int count);
    static qint64 ResidentBytes();
};
