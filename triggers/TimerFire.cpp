#include "TimerFire.h"

#include "FireHost.h"
#include "FireState.h"
#include "LocalTime.h"
#include "TriggerObject.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"

#include <QObject>

namespace {
const QString kPreciseFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz");
} // namespace

TimerFire::TimerFire()
    : m_timer([](void* fire, qint64 dueMSecs) { static_cast<TimerFire*>(fire)->onTimerExpired(dueMSecs); },
              this) {}

// On the home thread, as a queued arming is: the arming then finds the fire gone.
TimerFire::~TimerFire() {
    if (m_armToken) {
        m_armToken->fire = nullptr;
    }
}

void TimerFire::SetTriggerObject(TriggerObject* object) {
    DateTimeFire::SetTriggerObject(object);
    if (object != nullptr) {
        m_planUuid = object->getPlanUuid();
    }
}

quint64 TimerFire::Start() {
    const QDateTime current = Clock::now();
    QDateTime next;
    if (!Resume(current, next)) {
        SeekNextStartTime(current, next);
    }
    if (getFireState() != FireState::kScheduled) {
        return getFireState();
    }
    if (current.msecsTo(next) < 1) {
        Logger::Error(QString("Time trigger[%1] error,NextTime[%2] less than or equal to CurrentTime[%3] in "
                              "TimerFire::Start.")
                          .arg(LogText::Outside(m_planUuid), next.toString(kPreciseFormat),
                               current.toString(kPreciseFormat)));
    }
    StartWaitTimer(current, next);
    return getFireState();
}

// A plan the service scheduled before it was restarted waits for the start it
// was waiting for, with no first computation. A start that passed meanwhile is
// a missed start: the plan goes on with its series after now, and the catch-up
// decides about the missed run.
bool TimerFire::Resume(const QDateTime& current, QDateTime& next) {
    const TriggerObject* object = GetTriggerObject();
    if (object == nullptr || object->getFirstSeekDone() == 0 || object->getNextStartMSecs() == 0) {
        return false;
    }
    if (object->getNextStartMSecs() <= current.toMSecsSinceEpoch()) {
        SeekLateStartTime(current, next);
        return true;
    }
    next = QDateTime::fromMSecsSinceEpoch(object->getNextStartMSecs());
    setFireState(FireState::kScheduled);
    return true;
}

void TimerFire::StartWaitTimer(qint64 wait) {
    const QDateTime current = Clock::now();
    StartWaitTimer(current, current.addMSecs(wait));
}

void TimerFire::StartWaitTimer(const QDateTime& current, const QDateTime& due) {
    const qint64 wait = current.msecsTo(due);
    if (wait <= 0) {
        TriggerObject* object = GetTriggerObject();
        Logger::Error(QString("The TimerFire of scheduler[%1] waittime is less than or equal to 0.")
                          .arg(LogText::Outside(object != nullptr ? object->getPlanUuid() : m_planUuid)));
        setFireState(FireState::kError);
        return;
    }
    // Start times are whole seconds to the agent and in the stored text; a
    // start computed a fraction after a second (now + 1 s) runs on its second.
    const qint64 dueMSecs = due.toMSecsSinceEpoch();
    const qint64 second = dueMSecs - dueMSecs % 1000;
    const qint64 aim = second > current.toMSecsSinceEpoch() ? second : dueMSecs;
    if (!OnHomeThread()) {
        ArmAtHome(aim, wait);
        return;
    }
    Arm(aim, wait);
}

void TimerFire::ArmAtHome(qint64 dueMSecs, qint64 interval) {
    if (!m_armToken) {
        m_armToken = new ArmToken;
        m_armToken->fire = this;
    }
    const QExplicitlySharedDataPointer<ArmToken> token = m_armToken;
    QMetaObject::invokeMethod(
        home(),
        [token, dueMSecs, interval] {
            if (token->fire != nullptr) {
                token->fire->Arm(dueMSecs, interval);
            }
        },
        Qt::QueuedConnection);
}

void TimerFire::Arm(qint64 dueMSecs, qint64 interval) {
    m_connected = true;
    m_timer.startAt(dueMSecs, interval);
}

void TimerFire::RearmFromNextStartTime() {
    TriggerObject* object = GetTriggerObject();
    if (!m_timer.isActive() || object == nullptr) {
        return;
    }
    const QDateTime next = LocalTime::Parse(object->getNextStartTime());
    if (next.isValid()) {
        m_timer.startAt(next.toMSecsSinceEpoch(), m_timer.interval());
    }
}

void TimerFire::onTimerExpired(qint64 dueMSecs) {
    m_expiredDueMSecs = dueMSecs;
    if (m_connected) {
        ontimeout();
    }
}

void TimerFire::Stop() {
    m_connected = false;
    SetTriggerObject(nullptr);
}

void TimerFire::ontimeout() {
    if (GetTriggerObject() == nullptr) {
        Logger::Error("Failed to send the timerFireTimeout signal.");
        return;
    }
    if (host() != nullptr) {
        host()->TimerExpired(*this);
    }
}

void TimerFire::onkillDateTimer() {
    if (m_timer.isActive()) {
        m_timer.stop();
    }
}
