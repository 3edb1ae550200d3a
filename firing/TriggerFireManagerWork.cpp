#include "TriggerFireManagerWork.h"

#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "store/RunStateBatchHold.h"
#include "store/RunStateStore.h"
#include "store/SchedulerDataStoreManager.h"
#include "timing/DeadlineQueue.h"
#include "triggers/AtTimeFire.h"
#include "triggers/CalendarSchedule.h"
#include "triggers/EventerFire.h"
#include "triggers/FireState.h"
#include "triggers/JobTask.h"
#include "triggers/LocalTime.h"
#include "triggers/TimerFire.h"
#include "triggers/TriggerObject.h"

#include <QElapsedTimer>
#include <QThread>
#include <QTimer>

#include <limits>

namespace {
const QString kPreciseFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz");
constexpr qint64 kMinuteMSecs = 60000;

bool IsTimerMode() {
    return ConfigReader::getDateTimeFireType() == 1;
}

// Fires are deleted on the thread they belong to (the application thread);
// from another thread they are handed over to be deleted there.
void DisposeFire(TriggerFire* fire) {
    if (fire == nullptr) {
        return;
    }
    if (fire->thread() == QThread::currentThread()) {
        delete fire;
    } else {
        fire->deleteLater();
    }
}

// Stops and deletes a fire that has left its table. From another thread the
// fire is only handed to its own thread to be deleted: nothing reaches it any
// more, and its destructor stops its timer there.
void RetireFire(TriggerFire* fire) {
    if (fire != nullptr && fire->thread() == QThread::currentThread()) {
        fire->Stop();
    }
    DisposeFire(fire);
}

// Walks a fire table, taking out, stopping and deleting every fire for which
// `ends` is true; false when an entry holds no fire.
template <typename Table, typename Ends> bool EndFiresWhere(Table& table, Ends ends) {
    for (auto it = table.begin(); it != table.end();) {
        TriggerFire* fire = it.value();
        if (fire == nullptr) {
            return false;
        }
        if (!ends(fire)) {
            ++it;
            continue;
        }
        it = table.erase(it);
        RetireFire(fire);
    }
    return true;
}

// An on-time run computes its follow-up from the instant it was due, so that
// repetitions do not drift by the moments the runs took to fire; a run that a
// clock step or a sleep passed over goes on with the plan's series after the
// current time.
quint64 SeekTimerFollowUp(TimerFire& fire, const QDateTime& current, QDateTime& next) {
    const qint64 due = fire.expiredDueMSecs();
    const qint64 late = current.toMSecsSinceEpoch() - due;
    if (due != 0 && late >= 0 && late < DeadlineQueue::kStepToleranceMSecs) {
        return fire.SeekNextStartTime(QDateTime::fromMSecsSinceEpoch(due), next);
    }
    return fire.SeekLateStartTime(current, next);
}

// The start a poll has just run, from which its follow-up counts, so that the
// series keeps the seconds of its starts.
// The one worker of the process, created before main runs.
[[maybe_unused]] TriggerFireManagerWork& g_work = TriggerFireManagerWork::Instance();
} // namespace

// A time-out is handled at a later turn of the event loop, never inside the
// fire's own call: handling it may replace and delete that fire.
TriggerFireManagerWork::TriggerFireManagerWork() {
    TimerFire::SetTimeoutHandler([this](const QString& planUuid, quint64 fireId) {
        QMetaObject::invokeMethod(
            this, [this, planUuid, fireId] { onTimerFireTimeout(planUuid, fireId); }, Qt::QueuedConnection);
    });
}

TriggerFireManagerWork& TriggerFireManagerWork::Instance() {
    static TriggerFireManagerWork work;
    return work;
}

// A pass under way keeps no hold on a recorder that is going away.
void TriggerFireManagerWork::SetRunState(RunStateRecorder* runState) {
    QMutexLocker locker(&m_dateTimeMutex);
    m_passHold.reset();
    m_runState = runState;
    m_occurrences.SetRunState(runState);
}

bool TriggerFireManagerWork::Init() {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        if (m_dateTimeFires == nullptr) {
            m_dateTimeFires = new QHash<QString, TriggerFire*>();
        }
        m_pollIdleUntilMSecs = 0;
        EndPassLocked();
    }
    {
        QMutexLocker locker(&m_eventMutex);
        if (m_eventFires == nullptr) {
            m_eventFires = new QMultiHash<quint64, TriggerFire*>();
        }
    }
    m_occurrences = OccurrenceRecorder();
    m_occurrences.SetRunState(m_runState);
    if (m_catchUp == nullptr) {
        m_catchUp = std::make_unique<MissedRunCatchUp>(
            [this](const QString& planUuid, const QString& missedStart, qint64 delayMSecs) {
                return RunMissedStart(planUuid, missedStart, delayMSecs);
            });
        m_catchUp->Configure(ConfigReader::getMissedRunPolicy(), ConfigReader::getMissedRunSpreadSecs());
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
    for (TriggerObject* object : qAsConst(*registry)) {
        if (object == nullptr) {
            return false;
        }
        TriggerAttribute& attribute = object->getObjectTriggerAttribute();
        if (attribute.getTriggerEndFlag() != 0) {
            continue;
        }
        const quint64 type = attribute.getTriggerType();
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
        if (IsTimerMode()) {
            fire = new TimerFire();
        } else {
            fire = new AtTimeFire();
        }
    } else if (TriggerTypes::IsEvent(type)) {
        fire = new EventerFire();
    } else {
        return nullptr;
    }
    fire->moveToThread(thread());
    fire->SetTriggerObject(object);
    return fire;
}

bool TriggerFireManagerWork::InsertDateTimeFireLocked(const QString& planUuid, TriggerFire* fire) {
    if (m_dateTimeFires == nullptr || m_dateTimeFires->contains(planUuid)) {
        return false;
    }
    m_dateTimeFires->insert(planUuid, fire);
    // The open pass does not visit a fire added behind its back; the pass
    // that follows it comes at once and does.
    m_pollIdleUntilMSecs = 0;
    m_passEarliestDueMSecs = 0;
    return true;
}

bool TriggerFireManagerWork::InsertTriggerFire(const QString& planUuid, quint64 type, TriggerFire* fire) {
    if (fire == nullptr || planUuid.isEmpty() || type == 0) {
        return false;
    }
    if (TriggerTypes::IsDateTime(type)) {
        QMutexLocker locker(&m_dateTimeMutex);
        return InsertDateTimeFireLocked(planUuid, fire);
    }
    if (TriggerTypes::IsEvent(type)) {
        QMutexLocker locker(&m_eventMutex);
        if (m_eventFires == nullptr) {
            return false;
        }
        m_eventFires->insert(type, fire);
        return true;
    }
    return false;
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
        DisposeFire(fire);
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
    RetireFire(fire);
    return started == 0 ? 1 : started;
}

TriggerFire* TriggerFireManagerWork::NewDateTimeFireLocked(TriggerObject* object) {
    TriggerFire* fire = NewTriggerFire(object->getTriggerType(), object);
    if (fire == nullptr) {
        return nullptr;
    }
    if (!InsertDateTimeFireLocked(object->getPlanUuid(), fire)) {
        DisposeFire(fire);
        return nullptr;
    }
    return fire;
}

void TriggerFireManagerWork::EndTrigger(TriggerObject* object, const QString& fireClass) {
    object->getObjectTriggerAttribute().setTriggerEndFlag(1);
    if (m_runState != nullptr) {
        m_runState->RecordNow(object->getPlanUuid(), RunHistory::Outcome::Ended, false);
    }
    if (!JobTask::ReportTriggerInfo(object)) {
        Logger::Error(QString("The %1 of scheduler[%2] request update trigger end info error.")
                          .arg(fireClass, LogText::Outside(object->getPlanUuid())));
    }
    Logger::Info(QString("The %1 of scheduler[%2] trigger execution finished.")
                     .arg(fireClass, LogText::Outside(object->getPlanUuid())));
}

quint64 TriggerFireManagerWork::StartTriggerFire(TriggerFire* fire) {
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    if (object == nullptr) {
        return 1;
    }
    const quint64 state = fire->Start();
    if (state == FireState::kScheduled) {
        Logger::Info(QString("The TriggerFire of scheduler[%1] start success.")
                         .arg(LogText::Outside(object->getPlanUuid())));
        // A calendar trigger's schedule reaches the run state with its
        // trigger-info; an event trigger has no other moment to be listed.
        const quint64 type = object->getTriggerType();
        if (TriggerTypes::IsEvent(type) && m_runState != nullptr) {
            m_runState->RecordSchedule(object->getPlanUuid(), type, QString(), 0);
        }
        return 0;
    }
    if (state == FireState::kFinished) {
        if (object->getTriggerEndFlag() == 0) {
            EndTrigger(object, "TriggerFire");
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
    const RunStateBatchHold hold(m_runState);
    return StartAllTriggerFiresHeld();
}

bool TriggerFireManagerWork::StartAllTriggerFiresHeld() {
    const auto finished = [this](TriggerFire* fire) { return StartTriggerFire(fire) == 2; };
    {
        QMutexLocker locker(&m_dateTimeMutex);
        if (m_dateTimeFires != nullptr && !EndFiresWhere(*m_dateTimeFires, finished)) {
            return false;
        }
    }
    QMutexLocker locker(&m_eventMutex);
    return m_eventFires == nullptr || EndFiresWhere(*m_eventFires, finished);
}

// Each fire's timer is stopped by a direct call: a signal connected to every
// fire would cost a connection per fire and a duplicate check per connect,
// quadratic in the number of fires.
void TriggerFireManagerWork::StopAllTriggerFires() {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        EndPassLocked();
        if (m_dateTimeFires != nullptr) {
            for (TriggerFire* fire : qAsConst(*m_dateTimeFires)) {
                if (fire == nullptr) {
                    continue;
                }
                if (auto* dateTimeFire = qobject_cast<DateTimeFire*>(fire)) {
                    dateTimeFire->onkillDateTimer();
                }
                fire->Stop();
            }
        }
    }
    QMutexLocker locker(&m_eventMutex);
    if (m_eventFires == nullptr) {
        return;
    }
    for (TriggerFire* fire : qAsConst(*m_eventFires)) {
        if (fire != nullptr) {
            fire->Stop();
        }
    }
}

bool TriggerFireManagerWork::RemoveTriggerFire(const QString& planUuid, quint64 type) {
    if (planUuid.isEmpty() || type == 0) {
        return false;
    }
    if (TriggerTypes::IsDateTime(type)) {
        QMutexLocker locker(&m_dateTimeMutex);
        if (m_dateTimeFires == nullptr) {
            return true;
        }
        RetireFire(m_dateTimeFires->take(planUuid));
        return true;
    }
    if (!TriggerTypes::IsEvent(type)) {
        return false;
    }
    QMutexLocker locker(&m_eventMutex);
    if (m_eventFires == nullptr) {
        return true;
    }
    // A fire is listed under its plan's type: only that type's fires are
    // looked at, not every event fire of the service (34 ms a command at a
    // million plans).
    for (auto it = m_eventFires->find(type); it != m_eventFires->end() && it.key() == type;) {
        TriggerFire* fire = it.value();
        if (fire == nullptr || static_cast<EventerFire*>(fire)->getPlanUuid() != planUuid) {
            ++it;
            continue;
        }
        it = m_eventFires->erase(it);
        RetireFire(fire);
    }
    return true;
}

void TriggerFireManagerWork::DeleteAllTriggerFires() {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        if (m_dateTimeFires != nullptr) {
            for (TriggerFire* fire : qAsConst(*m_dateTimeFires)) {
                DisposeFire(fire);
            }
            m_dateTimeFires->clear();
        }
        EndPassLocked();
    }
    QMutexLocker locker(&m_eventMutex);
    if (m_eventFires != nullptr) {
        for (TriggerFire* fire : qAsConst(*m_eventFires)) {
            DisposeFire(fire);
        }
        m_eventFires->clear();
    }
}

void TriggerFireManagerWork::UnInit() {
    m_catchUp.reset();
    DeleteAllTriggerFires();
    {
        QMutexLocker locker(&m_eventMutex);
        delete m_eventFires;
        m_eventFires = nullptr;
    }
    QMutexLocker locker(&m_dateTimeMutex);
    delete m_dateTimeFires;
    m_dateTimeFires = nullptr;
}

void TriggerFireManagerWork::onAtTimerOut() {
    QMutexLocker locker(&m_dateTimeMutex);
    if (m_dateTimeFires == nullptr || m_passOpen || Clock::nowMSecsSinceEpoch() < m_pollIdleUntilMSecs) {
        return;
    }
    m_passOpen = true;
    m_passHold.emplace(m_runState);
    m_passKeys.clear();
    m_passKeyIndex = 0;
    m_passEarliestDueMSecs = std::numeric_limits<qint64>::max();
    RunPollSliceLocked();
}

void TriggerFireManagerWork::EndPassLocked() {
    if (m_passOpen) {
        m_passOpen = false;
        m_passHold.reset();
    }
}

void TriggerFireManagerWork::ContinuePollPass() {
    QMutexLocker locker(&m_dateTimeMutex);
    m_sliceScheduled = false;
    if (m_dateTimeFires != nullptr && m_passOpen) {
        RunPollSliceLocked();
    }
}

void TriggerFireManagerWork::RunPollSliceLocked() {
    if (PollSliceLocked()) {
        EndPassLocked();
        m_pollIdleUntilMSecs = m_passEarliestDueMSecs;
        return;
    }
    if (!m_sliceScheduled) {
        m_sliceScheduled = true;
        // A short pause rather than a posted call, so that a plan command
        // blocked on the table lock is sure to get it before the next slice.
        QTimer::singleShot(1, Qt::PreciseTimer, this, &TriggerFireManagerWork::ContinuePollPass);
    }
}

// One slice of the open pass; true when the pass has reached the end.
bool TriggerFireManagerWork::PollSliceLocked() {
    QElapsedTimer slice;
    slice.start();
    // Only a pass cut short has keys left to visit.
    const bool done = m_passKeys.isEmpty() ? PollFirstSliceLocked(slice) : PollLaterSliceLocked(slice);
    if (done) {
        m_passKeys.clear();
        m_passKeys.squeeze();
    }
    return done;
}

bool TriggerFireManagerWork::SliceUsedUp(int& visited, const QElapsedTimer& slice) const {
    return (++visited & 15) == 0 && slice.nsecsElapsed() >= m_pollSliceNSecs;
}

// Walks the table itself; a pass cut short keeps the keys it has not reached.
bool TriggerFireManagerWork::PollFirstSliceLocked(QElapsedTimer& slice) {
    int visited = 0;
    auto it = m_dateTimeFires->begin();
    while (it != m_dateTimeFires->end()) {
        if (SliceUsedUp(visited, slice)) {
            m_passKeys.reserve(m_dateTimeFires->size());
            for (; it != m_dateTimeFires->end(); ++it) {
                m_passKeys.append(it.key());
            }
            return false;
        }
        TriggerFire* fire = it.value();
        if (fire == nullptr || PollOne(fire, m_passEarliestDueMSecs)) {
            ++it;
            continue;
        }
        it = m_dateTimeFires->erase(it);
        RetireFire(fire);
    }
    return true;
}

bool TriggerFireManagerWork::PollLaterSliceLocked(QElapsedTimer& slice) {
    int visited = 0;
    while (m_passKeyIndex < m_passKeys.size()) {
        if (SliceUsedUp(visited, slice)) {
            return false;
        }
        const auto it = m_dateTimeFires->find(m_passKeys.at(m_passKeyIndex++));
        TriggerFire* fire = it != m_dateTimeFires->end() ? it.value() : nullptr;
        if (fire == nullptr || PollOne(fire, m_passEarliestDueMSecs)) {
            continue;
        }
        m_dateTimeFires->erase(it);
        RetireFire(fire);
    }
    return true;
}

// One entry of the poll; false when the fire has ended and leaves the table.
bool TriggerFireManagerWork::PollOne(TriggerFire* entry, qint64& earliestDueMSecs) {
    auto* fire = qobject_cast<AtTimeFire*>(entry);
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    const qint64 nowMSecs = Clock::nowMSecsSinceEpoch();
    if (object == nullptr) {
        Logger::Error("AtTimeFire or TriggerObject pointer is NULL in the onAtTimerOut.");
        earliestDueMSecs = qMin(earliestDueMSecs, nowMSecs);
        return true;
    }
    const QString text = object->getNextStartTime();
    qint64 minuteStartMSecs = 0;
    const bool valid = fire->DueMinuteStart(*object, minuteStartMSecs);
    if (valid && nowMSecs < minuteStartMSecs) {
        // Due in a later minute: the common case, kept free of any other work.
        earliestDueMSecs = qMin(earliestDueMSecs, minuteStartMSecs);
        return true;
    }
    const QString planUuid = object->getPlanUuid();
    const bool fired = valid && nowMSecs < minuteStartMSecs + kMinuteMSecs;
    if (fired) {
        if (fire->NowFire(object)) {
            Logger::Info(
                QString("The AtTimeFire of scheduler[%1] NowFire execution success in the onAtTimerOut.")
                    .arg(LogText::Outside(planUuid)));
            m_occurrences.Ran(*object, LocalTime::Parse(text).toMSecsSinceEpoch(), true);
            if (m_catchUp != nullptr) {
                m_catchUp->NoteRun(planUuid);
            }
        } else {
            Logger::Error(
                QString("The AtTimeFire of scheduler[%1] NowFire execution failed in the onAtTimerOut.")
                    .arg(LogText::Outside(planUuid)));
        }
    } else if (!text.isEmpty()) {
        Logger::Warn(
            QString("The AtTimeFire of scheduler[%1] nextdatetime[%2] less than currdatetime[%3] in the "
                    "onAtTimerOut.")
                .arg(LogText::Outside(planUuid), text,
                     LocalTime::Format(QDateTime::fromMSecsSinceEpoch(nowMSecs))));
        if (valid && (m_catchUp == nullptr || !m_catchUp->NoteMissed(planUuid, text))) {
            m_occurrences.Missed(planUuid, LocalTime::Parse(text).toMSecsSinceEpoch());
        }
    }
    const QDateTime current = QDateTime::fromMSecsSinceEpoch(nowMSecs);
    const QDateTime minuteStart = CalendarSchedule::MinuteStart(current);
    QDateTime next;
    const quint64 state = fired ? fire->SeekNextPolledStartTime(minuteStart, true, next)
                                : fire->SeekLateStartTime(minuteStart, next);
    if (state == FireState::kScheduled) {
        if (next < current) {
            Logger::Error(
                QString("Time trigger[%1] error,NextTime[%2] less than or equal to CurrentTime[%3] in "
                        "onAtTimerOut.")
                    .arg(LogText::Outside(planUuid), next.toString(kPreciseFormat),
                         current.toString(kPreciseFormat)));
        }
        earliestDueMSecs = qMin(earliestDueMSecs, CalendarSchedule::MinuteStart(next).toMSecsSinceEpoch());
        return true;
    }
    if (state == FireState::kFinished) {
        EndTrigger(object, "AtTimeFire");
    } else {
        Logger::Error(
            QString("The AtTimeFire of scheduler[%1] execution error.").arg(LogText::Outside(planUuid)));
    }
    return false;
}

void TriggerFireManagerWork::onTimerFireTimeout(QString planName, quint64 fireId) {
    if (planName.isEmpty()) {
        Logger::Error("The planName is empty in the onTimerTimeout.");
        return;
    }
    QMutexLocker locker(&m_dateTimeMutex);
    if (m_dateTimeFires == nullptr || !m_dateTimeFires->contains(planName)) {
        Logger::Error(QString("The TimerFire of scheduler[%1] is not find  in the list.")
                          .arg(LogText::Outside(planName)));
        return;
    }
    auto* fire = qobject_cast<TimerFire*>(m_dateTimeFires->value(planName));
    if (fire == nullptr) {
        Logger::Error(QString("The TimerFire of scheduler[%1] pointer is NULL  in the onTimerTimeout.")
                          .arg(LogText::Outside(planName)));
        return;
    }
    if (fire->fireId() != fireId) {
        // Queued by a fire that a plan command has replaced since: the plan's
        // current fire keeps its own time.
        Logger::Info(QString("The TimerFire of scheduler[%1] time-out of a replaced fire is dropped.")
                         .arg(LogText::Outside(planName)));
        return;
    }
    TriggerObject* object = fire->GetTriggerObject();
    if (object == nullptr) {
        Logger::Error("TriggerObject pointer is NULL in the onTimerTimeout.");
        return;
    }
    if (!CaughtUpLater(planName, fire, object)) {
        if (!fire->NowFire(object)) {
            Logger::Error(
                QString("The TimerFire of scheduler[%1] NowFire execution failed in the onTimerTimeout.")
                    .arg(LogText::Outside(planName)));
            return;
        }
        const qint64 due = fire->expiredDueMSecs();
        m_occurrences.Ran(*object, due,
                          Clock::nowMSecsSinceEpoch() - due <= DeadlineQueue::kStepToleranceMSecs);
        if (m_catchUp != nullptr) {
            m_catchUp->NoteRun(planName);
        }
    }
    const QDateTime current = Clock::now();
    QDateTime next;
    const quint64 state = SeekTimerFollowUp(*fire, current, next);
    if (state != FireState::kScheduled) {
        EndTimerFire(planName, fire, object, state);
        return;
    }
    if (next < current) {
        Logger::Error(QString("Time trigger[%1] error NextTime[%2] less than or equal to CurrentTime[%3] in "
                              "onTimerFireTimeout.")
                          .arg(LogText::Outside(planName), next.toString(kPreciseFormat),
                               current.toString(kPreciseFormat)));
    }
    m_dateTimeFires->remove(planName);
    RetireFire(fire);
    auto* replacement = qobject_cast<TimerFire*>(NewDateTimeFireLocked(object));
    if (replacement == nullptr) {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] NewTriggerFireCommand failed in the onTimerTimeout.")
                .arg(LogText::Outside(planName)));
        return;
    }
    replacement->StartWaitTimer(current, next);
}

// A timer whose due instant a clock step or a sleep passed over runs once when
// the queue notices, under either policy, as a late timer always did. With
// policy once that run is the plan's catch-up instead: spread, and named as
// such.
bool TriggerFireManagerWork::CaughtUpLater(const QString& planUuid, TimerFire* fire, TriggerObject* object) {
    if (m_catchUp == nullptr || !m_catchUp->CatchesUp() ||
        Clock::nowMSecsSinceEpoch() - fire->expiredDueMSecs() <= DeadlineQueue::kStepToleranceMSecs) {
        return false;
    }
    return m_catchUp->NoteMissed(planUuid, object->getNextStartTime());
}

void TriggerFireManagerWork::EndTimerFire(const QString& planUuid, TriggerFire* fire, TriggerObject* object,
                                          quint64 state) {
    if (state == FireState::kFinished) {
        EndTrigger(object, "TimerFire");
    } else {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] execution error.").arg(LogText::Outside(planUuid)));
    }
    m_dateTimeFires->remove(planUuid);
    RetireFire(fire);
}

void TriggerFireManagerWork::LocalTimeZoneChanged() {
    QMutexLocker locker(&m_dateTimeMutex);
    if (m_dateTimeFires == nullptr) {
        return;
    }
    m_pollIdleUntilMSecs = 0;
    for (TriggerFire* fire : qAsConst(*m_dateTimeFires)) {
        if (auto* timerFire = qobject_cast<TimerFire*>(fire)) {
            timerFire->RearmFromNextStartTime();
        } else if (auto* atTimeFire = qobject_cast<AtTimeFire*>(fire)) {
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
    // A poll still runs a start of the current minute itself; a timer fire
    // runs only starts still to come, and a resumed one that still aims at
    // its stored start runs it itself.
    const QDateTime current = Clock::now();
    QHash<QString, RunStateStore::StoredRun> passed = runs;
    QString dueBefore = LocalTime::Format(CalendarSchedule::MinuteStart(current));
    if (IsTimerMode()) {
        ForgetStartsStillAhead(passed);
        dueBefore = LocalTime::Format(current.addSecs(1));
    }
    if (m_catchUp != nullptr && m_catchUp->CatchesUp()) {
        m_catchUp->Seed(passed, dueBefore);
        return;
    }
    // A start the previous life handed has run, however the state was left.
    for (auto it = passed.constBegin(); it != passed.constEnd(); ++it) {
        if (!it->nextStart.isEmpty() && it->nextStart < dueBefore && it->nextStart > it->lastDue) {
            m_occurrences.Missed(it.key(), LocalTime::Parse(it->nextStart).toMSecsSinceEpoch());
        }
    }
}

void TriggerFireManagerWork::ForgetStartsStillAhead(QHash<QString, RunStateStore::StoredRun>& runs) {
    QMutexLocker locker(&m_dateTimeMutex);
    for (auto it = runs.begin(); it != runs.end(); ++it) {
        TriggerFire* fire =
            it->resumed && m_dateTimeFires != nullptr ? m_dateTimeFires->value(it.key()) : nullptr;
        const TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
        if (object != nullptr && object->getNextStartTime() == it->nextStart) {
            it->nextStart.clear();
        }
    }
}

// The run goes out for the missed start, so that the agent and the run state
// see which start it stands for; the plan's own next start stays as it is. A
// plan whose last start was the missed one has ended meanwhile and has no fire
// any more; its trigger is still registered, a deleted plan's is not.
bool TriggerFireManagerWork::RunMissedStart(const QString& planUuid, const QString& missedStart,
                                            qint64 delayMSecs) {
    QMutexLocker registryLocker(SchedulerDataStoreManager::GetTriggerObjectMutex());
    const QHash<QString, TriggerObject*>* registry = SchedulerDataStoreManager::GetTriggerObjectHash();
    QMutexLocker locker(&m_dateTimeMutex);
    TriggerFire* fire = m_dateTimeFires != nullptr ? m_dateTimeFires->value(planUuid, nullptr) : nullptr;
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    if (object == nullptr && registry != nullptr) {
        object = registry->value(planUuid, nullptr);
    }
    if (object == nullptr || !TriggerTypes::IsDateTime(object->getTriggerType())) {
        return false;
    }
    const QString fireClass = IsTimerMode() ? "TimerFire" : "AtTimeFire";
    TriggerObject run(*object);
    run.setNextStartTime(missedStart);
    if (!JobTask::FireJob(&run)) {
        Logger::Error(QString("The %1 of scheduler[%2] could not catch up its missed start [%3].")
                          .arg(fireClass, LogText::Outside(planUuid), missedStart));
        return false;
    }
    m_occurrences.CaughtUp(planUuid, LocalTime::Parse(missedStart).toMSecsSinceEpoch(), delayMSecs);
    Logger::Info(
        QString("The %1 of scheduler[%2] missed its start [%3]; caught up with one run at [%4].")
            .arg(fireClass, LogText::Outside(planUuid), missedStart, LocalTime::Format(Clock::now())));
    return true;
}

bool TriggerFireManagerWork::FireEventTrigger(quint64 eventType) {
    QMutexLocker locker(&m_eventMutex);
    if (m_eventFires == nullptr) {
        return false;
    }
    for (auto it = m_eventFires->find(eventType); it != m_eventFires->end() && it.key() == eventType; ++it) {
        auto* fire = static_cast<EventerFire*>(it.value());
        if (fire == nullptr) {
            continue;
        }
        TriggerObject* object = fire->GetTriggerObject();
        if (object != nullptr && fire->NowFire(object)) {
            if (m_runState != nullptr) {
                m_runState->RecordNow(fire->getPlanUuid(), RunHistory::Outcome::OnTime, true);
            }
            Logger::Info(
                QString("Fire to the EventFire[%1] job success.").arg(LogText::Outside(fire->getPlanUuid())));
        } else {
            Logger::Error(
                QString("Failed to fire the EventFire[%1] job.").arg(LogText::Outside(fire->getPlanUuid())));
        }
    }
    return true;
}

int TriggerFireManagerWork::DateTimeFireCount() {
    QMutexLocker locker(&m_dateTimeMutex);
    return m_dateTimeFires != nullptr ? m_dateTimeFires->size() : 0;
}

int TriggerFireManagerWork::EventFireCount(quint64 eventType) {
    QMutexLocker locker(&m_eventMutex);
    return m_eventFires != nullptr ? m_eventFires->count(eventType) : 0;
}

TriggerFire* TriggerFireManagerWork::DateTimeFireOf(const QString& planUuid) {
    QMutexLocker locker(&m_dateTimeMutex);
    return m_dateTimeFires != nullptr ? m_dateTimeFires->value(planUuid, nullptr) : nullptr;
}
