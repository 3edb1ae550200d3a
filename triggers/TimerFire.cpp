#include "TimerFire.h"

#include "FireState.h"
#include "TriggerObject.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"

#include <QThread>

#include <atomic>
#include <limits>

namespace {
const QString kPreciseFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz");
constexpr qint64 kMaxTimerInterval = std::numeric_limits<int>::max();
std::atomic<quint64> g_lastFireId{0};
} // namespace

// The timer is the fire's child so that it follows the fire to the thread the
// fire is moved to.
TimerFire::TimerFire(QObject* parent)
    : DateTimeFire(parent), m_timer(this),
      m_fireId(g_lastFireId.fetch_add(1, std::memory_order_relaxed) + 1) {
    m_timer.setTimerType(Qt::PreciseTimer);
}

TimerFire::~TimerFire() = default;

void TimerFire::SetTriggerObject(TriggerObject* object) {
    DateTimeFire::SetTriggerObject(object);
    if (object != nullptr) {
        m_planUuid = object->getPlanUuid();
    }
}

quint64 TimerFire::Start() {
    const QDateTime current = Clock::now();
    QDateTime next;
    SeekNextStartTime(current, next);
    if (getFireState() != FireState::kScheduled) {
        return getFireState();
    }
    const qint64 wait = current.msecsTo(next);
    if (wait < 1) {
        Logger::Error(QString("Time trigger[%1] error,NextTime[%2] less than or equal to CurrentTime[%3] in "
                              "TimerFire::Start.")
                          .arg(LogText::Outside(m_planUuid), next.toString(kPreciseFormat),
                               current.toString(kPreciseFormat)));
    }
    StartWaitTimer(current, next);
    return getFireState();
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
    m_waitMSecs = wait;
    m_dueMSecs = due.toMSecsSinceEpoch();
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(this, &TimerFire::Arm, Qt::QueuedConnection);
        return;
    }
    Arm();
}

void TimerFire::Arm() {
    connect(&m_timer, &QTimer::timeout, this, &TimerFire::ontimeout,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    ArmFor(m_dueMSecs - Clock::nowMSecsSinceEpoch());
}

void TimerFire::ArmFor(qint64 remaining) {
    m_timer.start(static_cast<int>(qBound<qint64>(0, remaining, kMaxTimerInterval)));
}

void TimerFire::Stop() {
    disconnect(&m_timer, &QTimer::timeout, this, &TimerFire::ontimeout);
    SetTriggerObject(nullptr);
}

void TimerFire::ontimeout() {
    if (GetTriggerObject() == nullptr) {
        Logger::Error("Failed to send the timerFireTimeout signal.");
        return;
    }
    const qint64 remaining = m_dueMSecs - Clock::nowMSecsSinceEpoch();
    if (remaining > 0) {
        ArmFor(remaining);
        return;
    }
    // Unless the fire is replaced, it tries again one whole wait later.
    m_dueMSecs += m_waitMSecs;
    ArmFor(m_waitMSecs);
    Q_EMIT timerFireTimeout(m_planUuid, m_fireId);
}

void TimerFire::onkillDateTimer() {
    if (m_timer.isActive()) {
        m_timer.stop();
    }
}
