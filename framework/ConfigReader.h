#pragma once

#include <QStringList>

// Reads cfg/config.ini once at start-up; the getters answer from what was read
// (or the defaults while nothing was).
class ConfigReader {
public:
    // [Metrics]: where the schedule health goes for the node exporter (empty:
    // nowhere), how often, how many per-plan series at most, and how long
    // after its due start a plan without a run counts as overdue. A count
    // below 1 or above its limit (a day; 10,000 series) takes its default.
    struct Metrics {
        QString textfilePath;
        quint64 intervalSecs = 15;
        quint64 planSeriesLimit = 100;
        quint64 overdueAfterSecs = 60;
    };

    static bool IniReader(const QString& path);
    static void ResetToDefaults();
    // The [Log] keys, read on their own before the log opens: MaxFileMiB
    // (1-4096) and MaxFiles (1-1000). A value outside its range leaves the
    // default in place and is named in `problems`, to be logged once the log
    // is open.
    static void ReadLogLimits(const QString& path, quint64& maxFileMiB, quint64& maxFiles,
                              QStringList& problems);

    static QString getAgentLocalServerName();
    static quint16 getAgentPort();
    static QString getSchedulerLocalServerName();
    static quint16 getSchedulerPort();
    static bool getAllowRemote();
    // [Communication] MaxClients: connections the command server keeps at
    // once (default 256; a value below 1 takes the default).
    static int getMaxClients();
    // [Communication] AllowedUsers (default root) and AllowedGroups, comma
    // lists of names or ids; see PeerAccessPolicy.
    static QStringList getAllowedUsers();
    static QStringList getAllowedGroups();
    // Without the key the service's own group is allowed.
    static bool hasAllowedGroups();
    static quint64 getDateTimeFireType();
    // [Scheduler] MissedRunPolicy as written ("skip" when absent) and
    // MissedRunSpreadSecs.
    static QString getMissedRunPolicy();
    static quint64 getMissedRunSpreadSecs();
    static Metrics getMetrics();
    // [History] KeepPerPlan (default 50) and KeepDays (default 90); a value
    // below 1 takes the default.
    static int getHistoryKeepPerPlan();
    static int getHistoryKeepDays();

    // For tests and tools that drive components without a file.
    static void setDateTimeFireType(quint64 value);
    static void setAgentEndpoint(const QString& name, quint16 port);
    static void setMissedRunPolicy(const QString& policy, quint64 spreadSecs);
    static void setHistoryLimits(int keepPerPlan, int keepDays);
    static void setAllowedPeers(const QStringList& users, const QStringList& groups);
    static void setMetrics(const Metrics& metrics);
};
