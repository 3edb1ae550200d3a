#include "TimerDispatch.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "timing/DeadlineQueue.h"
#include "triggers/FireState.h"
#include "triggers/LocalTime.h"
#include "triggers/TimerFire.h"
#include "triggers/TriggerObject.h"

namespace {
// An on-time run computes its follow-up from the instant it was due, so that
// repetitions do not drift by the moments the runs took to fire; a run that a
// clock step or a sleep passed over goes on with the plan's series after the
// current time. A time-out of no known due instant (0) counts as late.
quint64 SeekFollowUp(TimerFire& fire, qint64 due, qint64 current, qint64& next) {
    const qint64 late = current - due;
    if (due != 0 && late >= 0 && late < DeadlineQueue::kStepToleranceMSecs) {
        return fire.SeekNextStartTimeAt(due, next);
    }
    return fire.SeekLateStartTimeAt(current, next);
}
} // namespace

void TimerDispatch::TimedOutLocked(const QString& planUuid, quint32 expiredSerial, qint64 expiredDueMSecs) {
    TimerFire* fire = CurrentFireLocked(planUuid, expiredSerial);
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    if (fire != nullptr && object == nullptr) {
        Logger::Error("TriggerObject pointer is NULL in the onTimerTimeout.");
    }
    if (object == nullptr) {
        return;
    }
    if (!CaughtUpLater(planUuid, expiredDueMSecs, *object) &&
        !Run(planUuid, *fire, *object, expiredDueMSecs)) {
        return;
    }
    const qint64 current = Clock::nowMSecsSinceEpoch();
    qint64 next = 0;
    const quint64 state = SeekFollowUp(*fire, expiredDueMSecs, current, next);
    if (state != FireState::kScheduled) {
        EndLocked(planUuid, object, state);
        return;
    }
    RearmLocked(planUuid, object, current, next);
}

TimerFire* TimerDispatch::CurrentFireLocked(const QString& planUuid, quint32 expiredSerial) {
    if (planUuid.isEmpty()) {
        Logger::Error("The planName is empty in the onTimerTimeout.");
        return nullptr;
    }
    FireTables::DateTimeTable* table = m_context.tables.dateTimeLocked();
    const auto found =
        table != nullptr ? table->constFind(planUuid) : FireTables::DateTimeTable::const_iterator();
    if (table == nullptr || found == table->constEnd()) {
        Logger::Error(QString("The TimerFire of scheduler[%1] is not find  in the list.")
                          .arg(LogText::Outside(planUuid)));
        return nullptr;
    }
    TimerFire* fire = TriggerFire::TimerOf(found.value());
    if (fire == nullptr) {
        Logger::Error(QString("The TimerFire of scheduler[%1] pointer is NULL  in the onTimerTimeout.")
                          .arg(LogText::Outside(planUuid)));
        return nullptr;
    }
    if (fire->serial() != expiredSerial) {
        // Queued by a fire that a plan command has replaced since: the plan's
        // current fire keeps its own time.
        Logger::Info(QString("The TimerFire of scheduler[%1] time-out of a replaced fire is dropped.")
                         .arg(LogText::Outside(planUuid)));
        return nullptr;
    }
    return fire;
}

// A timer whose due instant a clock step or a sleep passed over runs once when
// the queue notices, under either policy, as a late timer always did. With
// policy once that run is the plan's catch-up instead: spread, and named as
// such.
bool TimerDispatch::CaughtUpLater(const QString& planUuid, qint64 expiredDueMSecs, TriggerObject& object) {
    MissedRunCatchUp* catchUp = m_context.catchUp.get();
    if (catchUp == nullptr || !catchUp->CatchesUp() ||
        Clock::nowMSecsSinceEpoch() - expiredDueMSecs <= DeadlineQueue::kStepToleranceMSecs) {
        return false;
    }
    return catchUp->NoteMissed(planUuid, object.getNextStartTime());
}

bool TimerDispatch::Run(const QString& planUuid, TimerFire& fire, TriggerObject& object,
                        qint64 expiredDueMSecs) {
    if (!fire.NowFire(&object)) {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] NowFire execution failed in the onTimerTimeout.")
                .arg(LogText::Outside(planUuid)));
        return false;
    }
    m_context.occurrences.Ran(object, expiredDueMSecs,
                              Clock::nowMSecsSinceEpoch() - expiredDueMSecs <=
                                  DeadlineQueue::kStepToleranceMSecs);
    m_context.NoteRun(planUuid);
    return true;
}

void TimerDispatch::EndLocked(const QString& planUuid, TriggerObject* object, quint64 state) {
    if (state == FireState::kFinished) {
        m_context.EndTrigger(object, "TimerFire");
    } else {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] execution error.").arg(LogText::Outside(planUuid)));
    }
    m_context.tables.RemoveDateTimeLocked(planUuid);
}

// The follow-up gets a fire of its own, so that a time-out of the old one
// still queued is recognised as stale.
void TimerDispatch::RearmLocked(const QString& planUuid, TriggerObject* object, qint64 current, qint64 next) {
    if (next < current) {
        Logger::Error(QString("Time trigger[%1] error NextTime[%2] less than or equal to CurrentTime[%3] in "
                              "onTimerFireTimeout.")
                          .arg(LogText::Outside(planUuid), LocalTime::FormatPrecise(next),
                               LocalTime::FormatPrecise(current)));
    }
    m_context.tables.RemoveDateTimeLocked(planUuid);
    TimerFire* replacement = TriggerFire::TimerOf(m_context.NewDateTimeFireLocked(object));
    if (replacement == nullptr) {
        Logger::Error(
            QString("The TimerFire of scheduler[%1] NewTriggerFireCommand failed in the onTimerTimeout.")
                .arg(LogText::Outside(planUuid)));
        return;
    }
    replacement->StartWaitTimer(current, next);
}
