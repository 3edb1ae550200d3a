#pragma once

#include "framework/TriggerAttribute.h"

#include <QString>
#include <QStringList>

// Shared set-up of the benchmarks: plans stored in a database file, and the
// process's resident memory.
class BenchSupport {
public:
    // A calendar definition that never comes due during a benchmark run.
    static TriggerAttribute QuietTrigger(int index);
    static void StorePlans(const QString& path, int count);
    static qint64 ResidentBytes();
    // CPU seconds, user and system, of this process (RUSAGE_SELF) or of its
    // waited-for children (RUSAGE_CHILDREN).
    static double CpuSeconds(int who);
    // Runs the orvelctl beside this benchmark: wall seconds from process start
    // to exit; `bytes` what it printed, `cpu` the CPU seconds it used, which a
    // loaded machine does not stretch.
    static double RunOrvelctl(const QStringList& arguments, qint64& bytes, double& cpu);
};
