#pragma once

#include "store/RunTally.h"
#include "store/ScheduleHealth.h"

#include <QByteArray>
#include <QString>

#include <map>
#include <optional>
#include <utility>

// Schedule health as a text exposition for Prometheus (the text format that
// OpenMetrics and the node exporter's textfile collector both read), built
// from aggregates only: the plans in trouble are the only per-plan series,
// and they come capped.
class MetricsExposition {
public:
    // What only the running service knows; orvelctl, reading the run state
    // from outside, has none of it.
    struct Live {
        bool up = true;
        qint64 startMSecs = 0;
        bool agentConnected = false;
        quint64 framesWaiting = 0;
        quint64 unwrittenChanges = 0;
        // (command, result) -> commands
        std::map<std::pair<QString, QString>, quint64> planCommands;
        RunTally::Counts runs;
    };

    // `writtenAtMSecs`: when the run state was last written, 0 when unknown.
    static QByteArray Build(const ScheduleHealth::Figures& figures, qint64 writtenAtMSecs,
                            const std::optional<Live>& live);
};
