#include "MetricsCommand.h"

#include "ArgumentList.h"
#include "ServiceEndpoint.h"
#include "ToolOutput.h"

#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "store/MetricsExposition.h"
#include "store/RunStateReader.h"
#include "triggers/LocalTime.h"

#include <cstdio>

QString MetricsCommand::Help() {
    return "Usage: orvelctl metrics [options]\n"
           "Prints the schedule health from the service's run state (data/state.db beside orvelctl) in\n"
           "the Prometheus text format the service writes to [Metrics] TextfilePath: plans by type and\n"
           "state, the earliest next start, overdue and refused plans and, capped by [Metrics]\n"
           "PlanSeriesLimit, one series per plan in trouble. What only the running service knows (the\n"
           "agent link, runs since its start) is left out.\n\n"
           "  --state PATH        the run state file (default: data/state.db beside orvelctl)\n"
           "  --now TIME          \"yyyy-MM-dd hh:mm:ss\": measure from this moment instead of now\n";
}

int MetricsCommand::Run(const QStringList& arguments) {
    ArgumentList parsed;
    const int done = parsed.Read(arguments, "metrics", Help(), {"--state", "--now"});
    if (done != ArgumentList::kGoOn) {
        return done;
    }
    const QDateTime now = parsed.Has("--now") ? LocalTime::Parse(parsed.Value("--now")) : Clock::now();
    if (!now.isValid()) {
        return ToolOutput::UsageError("metrics", "--now must read \"yyyy-MM-dd hh:mm:ss\"");
    }
    ServiceEndpoint::LoadConfiguration();
    const QString path = parsed.Value("--state", ServiceEndpoint::StatePath());
    RunStateReader reader;
    QString error;
    QVector<RunStateReader::Plan> plans;
    if (!reader.Open(path, error) || !reader.Read(QString(), plans, error)) {
        return ToolOutput::Fail(
            QString("orvelctl metrics: cannot read the run state %1: %2").arg(path, error), 1);
    }
    ScheduleHealth health;
    for (const RunStateReader::Plan& plan : qAsConst(plans)) {
        health.Put(plan.planUuid, plan.triggerType, plan.nextStart, plan.endFlag, plan.lastHandedMSecs,
                   plan.hasResult, plan.result, plan.resultMSecs);
    }
    const ConfigReader::Metrics settings = ConfigReader::getMetrics();
    const ScheduleHealth::Figures figures =
        health.Take(now.toMSecsSinceEpoch(), static_cast<qint64>(settings.overdueAfterSecs) * 1000,
                    settings.planSeriesLimit);
    const QByteArray text = MetricsExposition::Build(figures, reader.WrittenAtMSecs(), std::nullopt);
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    return 0;
}
