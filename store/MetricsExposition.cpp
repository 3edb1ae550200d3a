#include "MetricsExposition.h"

#include "triggers/TriggerTypeNames.h"

#include <initializer_list>

namespace {
const QByteArray kPrefix = "orvel_scheduler_";

// Plan UUIDs come from the plans database: a quote, a backslash or a line
// break in one must not end the label or forge a line.
QByteArray Escaped(const QString& value) {
    QByteArray text = value.toUtf8();
    text.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return text;
}

QByteArray Seconds(qint64 msecs) {
    return QByteArray::number(static_cast<double>(msecs) / 1000.0, 'f', 3);
}

using Labels = std::initializer_list<std::pair<const char*, QString>>;

class Writer {
public:
    void Family(const char* name, const char* type, const char* help) {
        m_text += "# HELP " + kPrefix + name + ' ' + help + '\n';
        m_text += "# TYPE " + kPrefix + name + ' ' + type + '\n';
    }
    void Sample(const char* name, Labels labels, const QByteArray& value) {
        m_text += kPrefix + name;
        const char* separator = "{";
        for (const auto& label : labels) {
            m_text += separator + QByteArray(label.first) + "=\"" + Escaped(label.second) + '"';
            separator = ",";
        }
        m_text += QByteArray(labels.size() != 0 ? "} " : " ") + value + '\n';
    }
    void Sample(const char* name, Labels labels, quint64 value) {
        Sample(name, labels, QByteArray::number(value));
    }
    void Gauge(const char* name, const char* help, quint64 value) {
        Family(name, "gauge", help);
        Sample(name, {}, value);
    }
    void Timestamp(const char* name, const char* help, qint64 msecs) {
        if (msecs == 0) {
            return;
        }
        Family(name, "gauge", help);
        Sample(name, {}, Seconds(msecs));
    }
    void Counter(const char* name, const char* label, const char* help,
                 const std::map<QString, quint64>& counts) {
        if (counts.empty()) {
            return;
        }
        Family(name, "counter", help);
        for (const auto& count : counts) {
            Sample(name, {{label, count.first}}, count.second);
        }
    }
    QByteArray Finish() {
        m_text += "# EOF\n";
        return m_text;
    }

private:
    QByteArray m_text;
};

void Plans(Writer& out, const ScheduleHealth::Figures& figures) {
    out.Family("plans", "gauge", "Plans by trigger type and state (scheduled or ended).");
    for (const auto& count : figures.plans) {
        out.Sample("plans",
                   {{"type", TriggerTypeNames::Name(count.first.first)},
                    {"state", count.first.second ? "ended" : "scheduled"}},
                   count.second);
    }
    out.Timestamp("next_start_timestamp_seconds", "The earliest next start over all plans.",
                  figures.earliestNextMSecs);
    out.Gauge("overdue_plans", "Plans whose due start passed without a run reaching the agent.",
              figures.overdue);
    out.Gauge("refused_plans", "Plans whose last run the agent refused.", figures.refused);
    out.Gauge("missed_plans", "Plans whose last start was missed since the service started.", figures.missed);
}

void Trouble(Writer& out, const ScheduleHealth::Figures& figures) {
    using Problem = ScheduleHealth::Problem;
    const struct {
        Problem problem;
        const char* name;
        const char* help;
    } kinds[] = {
        {Problem::Overdue, "plan_overdue_since_timestamp_seconds",
         "Per overdue plan: the start that passed, or when its unanswered run went to the agent."},
        {Problem::Refused, "plan_refused_timestamp_seconds", "Per plan whose last run was refused: when."},
        {Problem::Missed, "plan_missed_timestamp_seconds",
         "Per plan whose last start was missed since the service started: that start."}};
    for (const auto& kind : kinds) {
        out.Family(kind.name, "gauge", kind.help);
        for (const ScheduleHealth::Trouble& trouble : figures.trouble) {
            if (trouble.problem == kind.problem) {
                out.Sample(kind.name, {{"plan", trouble.planUuid}}, Seconds(trouble.sinceMSecs));
            }
        }
    }
    out.Gauge("plan_series_left_out", "Plans in trouble left out of the per-plan series by their limit.",
              figures.troubleLeftOut);
}

void Lateness(Writer& out, const RunTally::Counts& runs) {
    const char* name = "fire_lateness_seconds";
    out.Family(name, "histogram", "How long after its due start a run went to the agent.");
    quint64 below = 0;
    for (size_t i = 0; i < RunTally::kLatenessBounds.size(); ++i) {
        below += runs.lateness[i];
        out.Sample("fire_lateness_seconds_bucket", {{"le", QString::number(RunTally::kLatenessBounds[i])}},
                   below);
    }
    out.Sample("fire_lateness_seconds_bucket", {{"le", "+Inf"}}, runs.latenessCount);
    out.Sample("fire_lateness_seconds_sum", {}, QByteArray::number(runs.latenessSumSecs, 'f', 3));
    out.Sample("fire_lateness_seconds_count", {}, runs.latenessCount);
}

void Service(Writer& out, const MetricsExposition::Live& live) {
    out.Gauge("up", "1 while the service runs; its last write at stop says 0.", live.up ? 1 : 0);
    out.Timestamp("start_time_seconds", "When the service started.", live.startMSecs);
    out.Gauge("agent_connected", "1 while the link to the agent is connected.", live.agentConnected ? 1 : 0);
    out.Gauge("agent_frames_waiting", "Commands waiting for the agent link to connect.", live.framesWaiting);
    out.Gauge("run_state_unwritten_changes", "Changes of the run state not yet in its file.",
              live.unwrittenChanges);
    out.Counter("runs_total", "outcome", "Runs by outcome since the service started.",
                live.runs.runsByOutcome);
    out.Counter("run_answers_total", "result", "The agent's answers to runs since the service started.",
                live.runs.answers);
    out.Counter("missed_runs_total", "reason", "Missed starts by reason since the service started.",
                live.runs.missedByReason);
    Lateness(out, live.runs);
    if (live.planCommands.empty()) {
        return;
    }
    out.Family("plan_commands_total", "counter",
               "Plan commands by command and result since the service started.");
    for (const auto& count : live.planCommands) {
        out.Sample("plan_commands_total", {{"command", count.first.first}, {"result", count.first.second}},
                   count.second);
    }
}
} // namespace

QByteArray MetricsExposition::Build(const ScheduleHealth::Figures& figures, qint64 writtenAtMSecs,
                                    const std::optional<Live>& live) {
    Writer out;
    out.Family("build_info", "gauge", "The version of the service.");
    out.Sample("build_info", {{"version", ORVEL_VERSION}}, 1);
    if (live) {
        Service(out, *live);
    }
    out.Timestamp("run_state_written_timestamp_seconds", "When the run state file was last written.",
                  writtenAtMSecs);
    Plans(out, figures);
    Trouble(out, figures);
    return out.Finish();
}
