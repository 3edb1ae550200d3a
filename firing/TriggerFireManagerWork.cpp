#include "TriggerFireManagerWork.h"

#include "framework/ConfigReader.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "framework/WireFormat.h"
#include "store/RunStateBatchHold.h"
#include "store/RunStateRecorder.h"
#include "store/SchedulerDataStoreManager.h"
#include "triggers/AtTimeFire.h"
#include "triggers/EventerFire.h"
#include "triggers/FireState.h"
#include "triggers/JobTask.h"
#include "triggers/TimerFire.h"
#include "triggers/TriggerObject.h"

namespace {
// The one worker of the process, created before main runs.
[[maybe_unused]] TriggerFireManagerWork& g_work = TriggerFireManagerWork::Instance();
} // namespace

TriggerFireManagerWork::TriggerFireManagerWork()
    : m_pollPass(m_tables, [this](TriggerFire* fire, qint64& earliestDueMSecs) {
          return m_atTime.Poll(fire, earliestDueMSecs);
      }) {
    m_context.newDateTimeFireLocked = [this](TriggerObject* object) { return NewDateTimeFireLocked(object); };
}

TriggerFireManagerWork& TriggerFireManagerWork::Instance() {
    static TriggerFireManagerWork work;
    return work;
}

// A pass under way keeps no hold on a recorder that is going away.
void TriggerFireManagerWork::SetRunState(RunStateRecorder* runState) {
    QMutexLocker locker(&m_tables.dateTimeMutex());
    m_pollPass.SetRunStateLocked(runState);
    m_context.runState = runState;
    m_context.occurrences.SetRunState(runState);
}

bool TriggerFireManagerWork::Init() {
    m_tables.Create();
    {
        QMutexLocker locker(&m_tables.dateTimeMutex());
        m_pollPass.ResetLocked();
    }
    m_context.occurrences = OccurrenceRecorder();
    m_context.occurrences.SetRunState(m_context.runState);
    if (m_context.catchUp == nullptr) {
        m_context.catchUp = std::make_unique<MissedRunCatchUp>(
            [this](const QString& planUuid, const QString& missedStart, qint64 delayMSecs) {
                return m_downtime.RunMissedStart(planUuid, missedStart, delayMSecs);
            });
        m_context.catchUp->Configure(ConfigReader::getMissedRunPolicy(),
                                     ConfigReader::getMissedRunSpreadSecs());
    }
    if (!LoadTriggerFires()) {
        Logger::Error("Failed to load trigger fires.");
        return false;
    }
    return true;
}

bool TriggerFireManagerWork::LoadTriggerFires() {
    QMutexLocker locker(SchedulerDataStoreManager::GetTriggerObjectMutex());
    QHash<QString, TriggerObject*>* registry = SchedulerDataStoreManager::GetTriggerObjectHash();
    if (registry == nullptr) {
        return false;
    }
    m_tables.ReserveDateTime(registry->size());
    for (TriggerObject* object : qAsConst(*registry)) {
        if (object == nullptr) {
            return false;
        }
        if (object->getTriggerEndFlag() != 0) {
            continue;
        }
        const quint64 type = object->getTriggerType();
        TriggerFire* fire = NewTriggerFire(type, object);
        if (!InsertTriggerFire(object->getPlanUuid(), type, fire)) {
            delete fire;
            return false;
        }
    }
    return true;
}

TriggerFire* TriggerFireManagerWork::NewTriggerFire(quint64 type, TriggerObject* object) {
    if (object == nullptr || type == 0) {
        return nullptr;
    }
    TriggerFire* fire = nullptr;
    if (TriggerTypes::IsDateTime(type)) {
        fire = FiringContext::IsTimerMode() ? NewTimerFire() : new AtTimeFire();
    } else if (TriggerTypes::IsEvent(type)) {
        fire = new EventerFire();
    } else {
        return nullptr;
    }
    fire->setHost(this);
    fire->SetTriggerObject(object);
    return fire;
}

TriggerFire* TriggerFireManagerWork::NewTimerFire() {
    auto* fire = new TimerFire();
    fire->setSerial(++m_timerFireSerials);
    return fire;
}

bool TriggerFireManagerWork::InsertDateTimeFireLocked(const QString& planUuid, TriggerFire* fire) {
    if (!m_tables.InsertDateTimeLocked(planUuid, fire)) {
        return false;
    }
    m_pollPass.NoteChangedLocked();
    return true;
}

bool TriggerFireManagerWork::InsertTriggerFire(const QString& planUuid, quint64 type, TriggerFire* fire) {
    if (fire == nullptr || planUuid.isEmpty() || type == 0) {
        return false;
    }
    if (TriggerTypes::IsDateTime(type)) {
        QMutexLocker locker(&m_tables.dateTimeMutex());
        return InsertDateTimeFireLocked(planUuid, fire);
    }
    return TriggerTypes::IsEvent(type) && m_tables.InsertEvent(type, fire);
}

TriggerFire* TriggerFireManagerWork::NewTriggerFireCommand(TriggerObject* object) {
    if (object == nullptr) {
        return nullptr;
    }
    const quint64 type = object->getTriggerType();
    TriggerFire* fire = NewTriggerFire(type, object);
    if (fire == nullptr) {
        return nullptr;
    }
    if (!InsertTriggerFire(object->getPlanUuid(), type, fire)) {
        FireTables::Dispose(fire);
        return nullptr;
    }
    return fire;
}

quint64 TriggerFireManagerWork::StartNewTriggerFire(TriggerObject* object) {
    if (object == nullptr) {
        return 1;
    }
    const quint64 type = object->getTriggerType();
    TriggerFire* fire = NewTriggerFire(type, object);
    if (fire == nullptr) {
        return 1;
    }
    const quint64 started = StartTriggerFire(fire);
    if (started == 0 && InsertTriggerFire(object->getPlanUuid(), type, fire)) {
        return 0;
    }
    FireTables::Retire(fire);
    return started == 0 ? 1 : started;
}

TriggerFire* TriggerFireManagerWork::NewDateTimeFireLocked(TriggerObject* object) {
    TriggerFire* fire = NewTriggerFire(object->getTriggerType(), object);
    if (fire == nullptr) {
        return nullptr;
    }
    if (!InsertDateTimeFireLocked(object->getPlanUuid(), fire)) {
        FireTables::Dispose(fire);
        return nullptr;
    }
    return fire;
}

quint64 TriggerFireManagerWork::StartTriggerFire(TriggerFire* fire) {
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    if (object == nullptr) {
        return 1;
    }
    const quint64 state = fire->Start();
    if (state == FireState::kScheduled) {
        Logger::Info(QStringLiteral("The TriggerFire of scheduler[%1] start success.")
                         .arg(LogText::Outside(object->getPlanUuid())));
        // A calendar trigger's schedule reaches the run state with its
        // trigger-info; an event trigger has no other moment to be listed.
        const quint64 type = object->getTriggerType();
        if (TriggerTypes::IsEvent(type) && m_context.runState != nullptr) {
            m_context.runState->RecordSchedule(object->getPlanUuid(), type, QString(), 0);
        }
        return 0;
    }
    if (state == FireState::kFinished) {
        if (object->getTriggerEndFlag() == 0) {
            m_context.EndTrigger(object, "TriggerFire");
        }
        return 2;
    }
    Logger::Error(QString("The TriggerFire of scheduler[%1] execution error.")
                      .arg(LogText::Outside(object->getPlanUuid())));
    return 2;
}

// Starting a timer fire records its schedule: a start-up's schedules go in one
// transaction, as a poll pass's do, instead of one every 100 ms all over the
// file while the fires start.
bool TriggerFireManagerWork::StartAllTriggerFires() {
    const RunStateBatchHold hold(m_context.runState);
    return StartAllTriggerFiresHeld();
}

bool TriggerFireManagerWork::StartAllTriggerFiresHeld() {
    return m_tables.EndWhere([this](TriggerFire* fire) { return StartTriggerFire(fire) == 2; });
}

void TriggerFireManagerWork::StopAllTriggerFires() {
    {
        QMutexLocker locker(&m_tables.dateTimeMutex());
        m_pollPass.ResetLocked();
    }
    m_tables.StopAll();
}

bool TriggerFireManagerWork::RemoveTriggerFire(const QString& planUuid, quint64 type) {
    if (planUuid.isEmpty() || type == 0) {
        return false;
    }
    if (TriggerTypes::IsDateTime(type)) {
        m_tables.RemoveDateTime(planUuid);
        return true;
    }
    if (!TriggerTypes::IsEvent(type)) {
        return false;
    }
    m_tables.RemoveEvent(type, planUuid);
    return true;
}

void TriggerFireManagerWork::DeleteAllTriggerFires() {
    m_tables.DeleteAllFires();
    QMutexLocker locker(&m_tables.dateTimeMutex());
    m_pollPass.ResetLocked();
}

void TriggerFireManagerWork::UnInit() {
    m_context.catchUp.reset();
    {
        QMutexLocker locker(&m_tables.dateTimeMutex());
        m_pollPass.ResetLocked();
    }
    m_tables.Destroy();
}

void TriggerFireManagerWork::onAtTimerOut() {
    m_pollPass.Tick();
}

void TriggerFireManagerWork::PollWhole() {
    m_pollPass.Tick(PollPass::Cut::Whole);
}

// A time-out is handled at a later turn of the event loop, never inside the
// fire's own call: handling it may replace and delete that fire. The serial
// tells a time-out still queued when a plan command replaced its fire as stale,
// even if the new fire took the old one's address.
void TriggerFireManagerWork::TimerExpired(TimerFire& fire, qint64 expiredDueMSecs) {
    const QString planUuid = fire.planUuid();
    const quint32 serial = fire.serial();
    QMetaObject::invokeMethod(
        this,
        [this, planUuid, serial, expiredDueMSecs] {
            QMutexLocker locker(&m_tables.dateTimeMutex());
            m_timer.TimedOutLocked(planUuid, serial, expiredDueMSecs);
        },
        Qt::QueuedConnection);
}

// A plan command starts its fire on the command handler's thread; the fire is
// found again by its plan and serial, which no longer match once the fire was
// replaced or deleted meanwhile.
void TriggerFireManagerWork::ArmAtHome(TimerFire& fire, qint64 dueMSecs, qint64 interval) {
    const QString planUuid = fire.planUuid();
    const quint32 serial = fire.serial();
    QMetaObject::invokeMethod(
        this,
        [this, planUuid, serial, dueMSecs, interval] {
            QMutexLocker locker(&m_tables.dateTimeMutex());
            TimerFire* fire = TriggerFire::TimerOf(m_tables.DateTimeFireOfLocked(planUuid));
            if (fire != nullptr && fire->serial() == serial) {
                fire->Arm(dueMSecs, interval);
            }
        },
        Qt::QueuedConnection);
}

QObject* TriggerFireManagerWork::FireHome() {
    return this;
}

bool TriggerFireManagerWork::Send(const TriggerObject& object, quint64 commandType) {
    if (!JobTask::Send(object, commandType)) {
        return false;
    }
    if (m_handedRecorder) {
        m_handedRecorder(object, commandType);
    }
    return true;
}

void TriggerFireManagerWork::LocalTimeZoneChanged() {
    QMutexLocker locker(&m_tables.dateTimeMutex());
    FireTables::DateTimeTable* table = m_tables.dateTimeLocked();
    if (table == nullptr) {
        return;
    }
    m_pollPass.NoteChangedLocked();
    for (TriggerFire* fire : qAsConst(*table)) {
        if (TimerFire* timerFire = fire->AsTimerFire()) {
            timerFire->RearmFromNextStartTime();
        } else if (AtTimeFire* atTimeFire = fire->AsAtTimeFire()) {
            // The wall-clock time is what the plan asked for: its instant is
            // taken again from the text, in the zone now in force.
            if (TriggerObject* object = atTimeFire->GetTriggerObject()) {
                object->setNextStartTime(object->getNextStartTime());
            }
            atTimeFire->ForgetCachedMinute();
        }
    }
}

void TriggerFireManagerWork::CatchUpDowntime(const QHash<QString, RunStateStore::StoredRun>& runs) {
    m_downtime.CatchUp(runs);
}

bool TriggerFireManagerWork::FireEventTrigger(quint64 eventType) {
    return m_tables.ForEachEventFire(eventType, [this](TriggerFire* entry) {
        auto* fire = static_cast<EventerFire*>(entry);
        TriggerObject* object = fire->GetTriggerObject();
        if (object != nullptr && fire->NowFire(object)) {
            if (m_context.runState != nullptr) {
                m_context.runState->RecordNow(fire->getPlanUuid(), RunHistory::Outcome::OnTime, true);
            }
            Logger::Info(
                QString("Fire to the EventFire[%1] job success.").arg(LogText::Outside(fire->getPlanUuid())));
        } else {
            Logger::Error(
                QString("Failed to fire the EventFire[%1] job.").arg(LogText::Outside(fire->getPlanUuid())));
        }
    });
}
