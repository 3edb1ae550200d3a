#include "TriggerFireManager.h"

#include "TriggerFireManagerWork.h"

#include "framework/ConfigReader.h"
#include "framework/Logger.h"

TriggerFireManager::TriggerFireManager(QObject* parent) : QObject(parent) {
    connect(&m_zoneTimer, &QTimer::timeout, this, &TriggerFireManager::onCheckLocalTimeZone);
}

void TriggerFireManager::SetRunState(RunStateRecorder* runState) {
    TriggerFireManagerWork::Instance().SetRunState(runState);
}

bool TriggerFireManager::Init() {
    return TriggerFireManagerWork::Instance().Init();
}

bool TriggerFireManager::Start() {
    TriggerFireManagerWork& work = TriggerFireManagerWork::Instance();
    if (!work.StartAllTriggerFires()) {
        return false;
    }
    m_zoneTimer.start(LocalZoneWatch::kCheckIntervalMSecs);
    if (ConfigReader::getDateTimeFireType() == 1) {
        return true;
    }
    connect(&m_atTimer, &QTimer::timeout, &work, &TriggerFireManagerWork::onAtTimerOut, Qt::UniqueConnection);
    connect(this, &TriggerFireManager::killAtTimer, this, &TriggerFireManager::onkillAtTimer,
            Qt::UniqueConnection);
    m_atTimer.start(kPollIntervalMSecs);
    // The first poll computes and reports every plan; it need not wait half a
    // second for the timer's first tick. Queued, so that it comes after the
    // start has been logged as a success.
    QMetaObject::invokeMethod(&work, &TriggerFireManagerWork::PollWhole, Qt::QueuedConnection);
    return true;
}

void TriggerFireManager::Stop() {
    TriggerFireManagerWork& work = TriggerFireManagerWork::Instance();
    m_zoneTimer.stop();
    if (ConfigReader::getDateTimeFireType() != 1) {
        Q_EMIT killAtTimer();
        disconnect(&m_atTimer, &QTimer::timeout, &work, &TriggerFireManagerWork::onAtTimerOut);
    }
    work.StopAllTriggerFires();
}

void TriggerFireManager::UnInit() {
    TriggerFireManagerWork::Instance().UnInit();
}

TriggerFire* TriggerFireManager::NewTriggerFireCommand(TriggerObject* object) {
    return TriggerFireManagerWork::Instance().NewTriggerFireCommand(object);
}

quint64 TriggerFireManager::StartTriggerFire(TriggerFire* fire) {
    return TriggerFireManagerWork::Instance().StartTriggerFire(fire);
}

quint64 TriggerFireManager::StartNewTriggerFire(TriggerObject* object) {
    return TriggerFireManagerWork::Instance().StartNewTriggerFire(object);
}

bool TriggerFireManager::RemoveTriggerFire(const QString& planUuid, quint64 type) {
    return TriggerFireManagerWork::Instance().RemoveTriggerFire(planUuid, type);
}

bool TriggerFireManager::FireEventTrigger(quint64 eventType) {
    return TriggerFireManagerWork::Instance().FireEventTrigger(eventType);
}

void TriggerFireManager::onCheckLocalTimeZone() {
    if (!m_zoneWatch.CheckChanged()) {
        return;
    }
    Logger::Info("The local time zone changed; start times are read in the new zone.");
    TriggerFireManagerWork::Instance().LocalTimeZoneChanged();
}

void TriggerFireManager::onkillAtTimer() {
    if (m_atTimer.isActive()) {
        m_atTimer.stop();
    }
}

void TriggerFireManager::CatchUpDowntime(const QHash<QString, RunStateStore::StoredRun>& runs) {
    TriggerFireManagerWork::Instance().CatchUpDowntime(runs);
}
