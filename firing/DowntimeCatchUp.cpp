#include "DowntimeCatchUp.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/WireFormat.h"
#include "store/SchedulerDataStoreManager.h"
#include "triggers/CalendarSchedule.h"
#include "triggers/FireHost.h"
#include "triggers/FireState.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerFire.h"
#include "triggers/TriggerObject.h"

void DowntimeCatchUp::CatchUp(const QHash<QString, RunStateStore::StoredRun>& runs) {
    // A poll still runs a start of the current minute itself; a timer fire
    // runs only starts still to come, and a resumed one that still aims at
    // its stored start runs it itself.
    const QDateTime current = Clock::now();
    QHash<QString, RunStateStore::StoredRun> passed = runs;
    QString dueBefore = LocalTime::Format(CalendarSchedule::MinuteStart(current));
    if (FiringContext::IsTimerMode()) {
        ForgetStartsStillAhead(passed);
        dueBefore = LocalTime::Format(current.addSecs(1));
    }
    if (m_context.catchUp != nullptr && m_context.catchUp->CatchesUp()) {
        m_context.catchUp->Seed(passed, dueBefore);
        return;
    }
    // A start the previous life handed has run, however the state was left.
    for (auto it = passed.constBegin(); it != passed.constEnd(); ++it) {
        if (!it->nextStart.isEmpty() && it->nextStart < dueBefore && it->nextStart > it->lastDue) {
            m_context.occurrences.Missed(it.key(), LocalTime::Parse(it->nextStart).toMSecsSinceEpoch());
        }
    }
}

void DowntimeCatchUp::ForgetStartsStillAhead(QHash<QString, RunStateStore::StoredRun>& runs) {
    QMutexLocker locker(&m_context.tables.dateTimeMutex());
    const FireTables::DateTimeTable* table = m_context.tables.dateTimeLocked();
    for (auto it = runs.begin(); it != runs.end(); ++it) {
        TriggerFire* fire = it->resumed && table != nullptr ? table->value(it.key()) : nullptr;
        const TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
        if (object != nullptr && object->getNextStartTime() == it->nextStart) {
            it->nextStart.clear();
        }
    }
}

// A plan whose last start was the missed one has ended meanwhile and has no
// fire any more; its trigger is still registered, a deleted plan's is not.
bool DowntimeCatchUp::RunMissedStart(const QString& planUuid, const QString& missedStart, qint64 delayMSecs) {
    QMutexLocker registryLocker(SchedulerDataStoreManager::GetTriggerObjectMutex());
    const QHash<QString, TriggerObject*>* registry = SchedulerDataStoreManager::GetTriggerObjectHash();
    QMutexLocker locker(&m_context.tables.dateTimeMutex());
    const FireTables::DateTimeTable* table = m_context.tables.dateTimeLocked();
    TriggerFire* fire = table != nullptr ? table->value(planUuid, nullptr) : nullptr;
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    if (object == nullptr && registry != nullptr) {
        object = registry->value(planUuid, nullptr);
    }
    if (object == nullptr || !TriggerTypes::IsDateTime(object->getTriggerType())) {
        return false;
    }
    const QString fireClass = FiringContext::IsTimerMode() ? "TimerFire" : "AtTimeFire";
    TriggerObject run(*object);
    run.setNextStartTime(missedStart);
    if (!m_context.host.Send(run, CommandTypes::kExecuteTrigger)) {
        Logger::Error(QString("The %1 of scheduler[%2] could not catch up its missed start [%3].")
                          .arg(fireClass, LogText::Outside(planUuid), missedStart));
        return false;
    }
    m_context.occurrences.CaughtUp(planUuid, LocalTime::Parse(missedStart).toMSecsSinceEpoch(), delayMSecs);
    Logger::Info(
        QString("The %1 of scheduler[%2] missed its start [%3]; caught up with one run at [%4].")
            .arg(fireClass, LogText::Outside(planUuid), missedStart, LocalTime::Format(Clock::now())));
    return true;
}
