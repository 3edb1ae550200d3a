#include "StoredPlan.h"

#include "framework/DatabaseFunctionOperation.h"
#include "store/RunStateReader.h"
#include "triggers/FireState.h"
#include "triggers/LocalTime.h"
#include "triggers/WallTime.h"

#include <QFileInfo>
#include <QHash>

bool StoredPlan::Load(const QString& databasePath, const QString& statePath, const QString& planUuid,
                      QString& error) {
    DatabaseFunctionOperation database;
    QHash<QString, TriggerAttribute*> attributes;
    if (!database.Init(databasePath) || !database.LoadTriggerAttributes(attributes)) {
        error = QString("cannot read %1: %2").arg(databasePath, database.Failure());
        return false;
    }
    TriggerAttribute* attribute = attributes.value(planUuid, nullptr);
    if (attribute != nullptr) {
        m_object.setPlanUuid(planUuid);
        m_object.setTriggerAttribute(*attribute);
    }
    qDeleteAll(attributes);
    database.UnInit();
    if (attribute == nullptr) {
        error = QString("%1 holds no plan '%2'").arg(databasePath, planUuid);
        return false;
    }
    if (!QFileInfo::exists(statePath)) {
        return true;
    }
    RunStateReader reader;
    QVector<RunStateReader::Plan> runs;
    if (!reader.Open(statePath, error) || !reader.Read(planUuid, runs, error)) {
        error = QString("cannot read the run state %1: %2").arg(statePath, error);
        return false;
    }
    if (!runs.isEmpty()) {
        m_ended = runs.first().endFlag != 0;
        Resume(runs.first().nextStart);
    }
    return true;
}

bool StoredPlan::nextStart(qint64& msecs) const {
    msecs = m_nextStartMSecs;
    return m_hasNextStart;
}

// The progress the service keeps in memory: a repetition of a weekly or
// monthly span counts the intervals since the day's start time.
void StoredPlan::Resume(const QString& nextStart) {
    const QDateTime next = LocalTime::Parse(nextStart);
    if (!next.isValid()) {
        return;
    }
    m_hasNextStart = true;
    m_nextStartMSecs = next.toMSecsSinceEpoch();
    m_object.setFirstSeekDone(1);
    const CalendarRule& rule = m_object.getCalendarRule();
    if (rule.interval() == 0 || rule.type() == TriggerTypes::kDaily) {
        return;
    }
    const QDate day = WallTime::DateOf(WallTime::Of(m_nextStartMSecs));
    const qint64 dayStart = WallTime::InstantOf(WallTime::Make(day, rule.startTimeOfDay()));
    if (m_nextStartMSecs > dayStart) {
        m_object.setRepeatCount(static_cast<quint64>((m_nextStartMSecs - dayStart) /
                                                     (static_cast<qint64>(rule.interval()) * 1000)));
    }
}
