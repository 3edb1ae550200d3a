#include "TimerFire.h"

#include "FireHost.h"
#include "FireState.h"
#include "LocalTime.h"
#include "TriggerObject.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"

void TimerFire::SetTriggerObject(TriggerObject* object) {
    DateTimeFire::SetTriggerObject(object);
    if (object != nullptr) {
        m_planUuid = object->getPlanUuid();
    }
}

// Kept in instants: a start-up starts every plan here.
quint64 TimerFire::Start() {
    const qint64 current = Clock::nowMSecsSinceEpoch();
    qint64 next = 0;
    if (!Resume(current, next)) {
        SeekNextStartTimeAt(current, next);
    }
    if (getFireState() != FireState::kScheduled) {
        return getFireState();
    }
    if (next - current < 1) {
        Logger::Error(QString("Time trigger[%1] error,NextTime[%2] less than or equal to CurrentTime[%3] in "
                              "TimerFire::Start.")
                          .arg(LogText::Outside(m_planUuid), LocalTime::FormatPrecise(next),
                               LocalTime::FormatPrecise(current)));
    }
    StartWaitTimer(current, next);
    return getFireState();
}

// A plan the service scheduled before it was restarted waits for the start it
// was waiting for, with no first computation. A start that passed meanwhile is
// a missed start: the plan goes on with its series after now, and the catch-up
// decides about the missed run.
bool TimerFire::Resume(qint64 current, qint64& next) {
    const TriggerObject* object = GetTriggerObject();
    if (object == nullptr || object->getFirstSeekDone() == 0 || object->getNextStartMSecs() == 0) {
        return false;
    }
    if (object->getNextStartMSecs() <= current) {
        SeekLateStartTimeAt(current, next);
        return true;
    }
    next = object->getNextStartMSecs();
    setFireState(FireState::kScheduled);
    return true;
}

void TimerFire::StartWaitTimer(qint64 wait) {
    const qint64 current = Clock::nowMSecsSinceEpoch();
    StartWaitTimer(current, current + wait);
}

void TimerFire::StartWaitTimer(qint64 currentMSecs, qint64 dueMSecs) {
    const qint64 wait = dueMSecs - currentMSecs;
    if (wait <= 0) {
        TriggerObject* object = GetTriggerObject();
        Logger::Error(QString("The TimerFire of scheduler[%1] waittime is less than or equal to 0.")
                          .arg(LogText::Outside(object != nullptr ? object->getPlanUuid() : m_planUuid)));
        setFireState(FireState::kError);
        return;
    }
    // Start times are whole seconds to the agent and in the stored text; a
    // start computed a fraction after a second (now + 1 s) runs on its second.
    const qint64 second = dueMSecs - dueMSecs % 1000;
    const qint64 aim = second > currentMSecs ? second : dueMSecs;
    // Off its home thread a fire always has a host: the home is the host's.
    if (!OnHomeThread()) {
        host()->ArmAtHome(*this, aim, wait);
        return;
    }
    Arm(aim, wait);
}

void TimerFire::Arm(qint64 dueMSecs, qint64 interval) {
    m_connected = true;
    startAt(dueMSecs, interval);
}

void TimerFire::RearmFromNextStartTime() {
    TriggerObject* object = GetTriggerObject();
    if (!isActive() || object == nullptr) {
        return;
    }
    const QDateTime next = LocalTime::Parse(object->getNextStartTime());
    if (next.isValid()) {
        startAt(next.toMSecsSinceEpoch(), interval());
    }
}

void TimerFire::Expired(qint64 expiredDueMSecs) {
    if (m_connected) {
        HandOver(expiredDueMSecs);
    }
}

void TimerFire::Stop() {
    m_connected = false;
    SetTriggerObject(nullptr);
}

void TimerFire::ontimeout() {
    HandOver(0);
}

void TimerFire::HandOver(qint64 expiredDueMSecs) {
    if (GetTriggerObject() == nullptr) {
        Logger::Error("Failed to send the timerFireTimeout signal.");
        return;
    }
    if (host() != nullptr) {
        host()->TimerExpired(*this, expiredDueMSecs);
    }
}

void TimerFire::onkillDateTimer() {
    stop();
}
