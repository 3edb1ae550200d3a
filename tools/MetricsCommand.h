#pragma once

#include <QStringList>

// "orvelctl metrics": the schedule health from the run state, in the text
// format the service writes for the node exporter, for hosts without one and
// for scripts. It reads the file only, also while the service is down.
class MetricsCommand {
public:
    static int Run(const QStringList& arguments);
    static QString Help();
};
