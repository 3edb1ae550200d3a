#include "ConfigReader.h"

#include <QFileInfo>
#include <QSettings>

namespace {
struct Values {
    QString agentName = "127.0.0.1";
    quint16 agentPort = 6061;
    QString schedulerName = "127.0.0.1";
    quint16 schedulerPort = 6060;
    bool allowRemote = false;
    int maxClients = 256;
    QStringList allowedUsers{"root"};
    QStringList allowedGroups;
    bool allowedGroupsSet = false;
    quint64 dateTimeFireType = 0;
    QString missedRunPolicy = "skip";
    quint64 missedRunSpreadSecs = 0;
    ConfigReader::Metrics metrics;
    int historyKeepPerPlan = 50;
    int historyKeepDays = 90;
};

Values& Current() {
    static Values values;
    return values;
}

int PositiveValue(const QSettings& settings, const char* key, int fallback) {
    bool ok = false;
    const int value = settings.value(key, fallback).toInt(&ok);
    return ok && value >= 1 ? value : fallback;
}

// The lowest port a key accepts: the command server may take 0, any free port,
// which it then logs; the agent's port must be a real one.
quint16 PortValue(const QSettings& settings, const char* key, quint16 fallback, uint lowest) {
    bool ok = false;
    const uint port = settings.value(key, fallback).toUInt(&ok);
    return ok && port >= lowest && port <= 65535 ? static_cast<quint16>(port) : fallback;
}

quint64 CountValue(const QSettings& settings, const char* key, quint64 fallback, quint64 highest) {
    bool ok = false;
    const quint64 count = settings.value(key, fallback).toULongLong(&ok);
    return ok && count >= 1 && count <= highest ? count : fallback;
}

ConfigReader::Metrics MetricsValues(const QSettings& settings) {
    const ConfigReader::Metrics defaults;
    ConfigReader::Metrics metrics;
    metrics.textfilePath = settings.value("Metrics/TextfilePath").toString().trimmed();
    metrics.intervalSecs = CountValue(settings, "Metrics/IntervalSecs", defaults.intervalSecs, 86400);
    metrics.planSeriesLimit =
        CountValue(settings, "Metrics/PlanSeriesLimit", defaults.planSeriesLimit, 10000);
    metrics.overdueAfterSecs =
        CountValue(settings, "Metrics/OverdueAfterSecs", defaults.overdueAfterSecs, 86400);
    return metrics;
}
void LimitValue(const QSettings& settings, const QString& key, quint64 highest, quint64& value,
                QStringList& problems) {
    if (!settings.contains(key)) {
        return;
    }
    const QString text = settings.value(key).toString();
    bool ok = false;
    const quint64 read = text.trimmed().toULongLong(&ok);
    if (!ok || read < 1 || read > highest) {
        problems << QString(
                        "The configuration value %1 \"%2\" is not a whole number from 1 to %3; %4 is used.")
                        .arg(key, text)
                        .arg(highest)
                        .arg(value);
        return;
    }
    value = read;
}
} // namespace

void ConfigReader::ReadLogLimits(const QString& path, quint64& maxFileMiB, quint64& maxFiles,
                                 QStringList& problems) {
    if (!QFileInfo(path).isFile()) {
        return;
    }
    const QSettings settings(path, QSettings::IniFormat);
    LimitValue(settings, "Log/MaxFileMiB", 4096, maxFileMiB, problems);
    LimitValue(settings, "Log/MaxFiles", 1000, maxFiles, problems);
}

bool ConfigReader::IniReader(const QString& path) {
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable()) {
        return false;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        return false;
    }
    const Values defaults;
    Values values;
    values.agentName = settings.value("Communication/AgentLocalServerName", defaults.agentName).toString();
    values.agentPort = PortValue(settings, "Communication/AgentPort", defaults.agentPort, 1);
    values.schedulerName =
        settings.value("Communication/SchedulerLocalServerName", defaults.schedulerName).toString();
    values.schedulerPort = PortValue(settings, "Communication/SchedulerPort", defaults.schedulerPort, 0);
    values.allowRemote = settings.value("Communication/AllowRemote", defaults.allowRemote).toBool();
    const int maxClients = settings.value("Communication/MaxClients", defaults.maxClients).toInt();
    values.maxClients = maxClients > 0 ? maxClients : defaults.maxClients;
    values.allowedUsers = settings.value("Communication/AllowedUsers", defaults.allowedUsers).toStringList();
    values.allowedGroupsSet = settings.contains("Communication/AllowedGroups");
    values.allowedGroups = settings.value("Communication/AllowedGroups").toStringList();
    values.dateTimeFireType = settings.value("Scheduler/DateTimeFireType", 0).toULongLong();
    values.missedRunPolicy = settings.value("Scheduler/MissedRunPolicy", defaults.missedRunPolicy).toString();
    values.missedRunSpreadSecs = settings.value("Scheduler/MissedRunSpreadSecs", 0).toULongLong();
    values.metrics = MetricsValues(settings);
    values.historyKeepPerPlan = PositiveValue(settings, "History/KeepPerPlan", defaults.historyKeepPerPlan);
    values.historyKeepDays = PositiveValue(settings, "History/KeepDays", defaults.historyKeepDays);
    Current() = values;
    return true;
}

void ConfigReader::ResetToDefaults() {
    Current() = Values();
}

QString ConfigReader::getAgentLocalServerName() {
    return Current().agentName;
}

quint16 ConfigReader::getAgentPort() {
    return Current().agentPort;
}

QString ConfigReader::getSchedulerLocalServerName() {
    return Current().schedulerName;
}

quint16 ConfigReader::getSchedulerPort() {
    return Current().schedulerPort;
}

int ConfigReader::getMaxClients() {
    return Current().maxClients;
}

bool ConfigReader::getAllowRemote() {
    return Current().allowRemote;
}

QStringList ConfigReader::getAllowedUsers() {
    return Current().allowedUsers;
}

QStringList ConfigReader::getAllowedGroups() {
    return Current().allowedGroups;
}

bool ConfigReader::hasAllowedGroups() {
    return Current().allowedGroupsSet;
}

quint64 ConfigReader::getDateTimeFireType() {
    return Current().dateTimeFireType;
}

void ConfigReader::setDateTimeFireType(quint64 value) {
    Current().dateTimeFireType = value;
}

void ConfigReader::setAgentEndpoint(const QString& name, quint16 port) {
    Current().agentName = name;
    Current().agentPort = port;
}

QString ConfigReader::getMissedRunPolicy() {
    return Current().missedRunPolicy;
}

quint64 ConfigReader::getMissedRunSpreadSecs() {
    return Current().missedRunSpreadSecs;
}

void ConfigReader::setMissedRunPolicy(const QString& policy, quint64 spreadSecs) {
    Current().missedRunPolicy = policy;
    Current().missedRunSpreadSecs = spreadSecs;
}

void ConfigReader::setAllowedPeers(const QStringList& users, const QStringList& groups) {
    Current().allowedUsers = users;
    Current().allowedGroups = groups;
    Current().allowedGroupsSet = true;
}

ConfigReader::Metrics ConfigReader::getMetrics() {
    return Current().metrics;
}

void ConfigReader::setMetrics(const Metrics& metrics) {
    Current().metrics = metrics;
}

int ConfigReader::getHistoryKeepPerPlan() {
    return Current().historyKeepPerPlan;
}

int ConfigReader::getHistoryKeepDays() {
    return Current().historyKeepDays;
}

void ConfigReader::setHistoryLimits(int keepPerPlan, int keepDays) {
    Current().historyKeepPerPlan = keepPerPlan;
    Current().historyKeepDays = keepDays;
}
