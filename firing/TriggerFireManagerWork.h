#pragma once

#include <QHash>
#include <QMultiHash>
#include <QMutex>
#include <QObject>
#include <QString>

class TriggerFire;
class TriggerObject;

// Holds every live trigger fire: the date-time table (one fire per plan) and
// the event table (fires keyed by event type), each under its own
// non-recursive mutex. The registry mutex may be held while a table mutex is
// taken, never the other way round; the two table mutexes are never held
// together.
//
// Every fire is moved to this object's thread (the application thread) when it
// is created, so that timers are only ever armed, stopped and destroyed there.
// A fire removed from another thread is stopped under the table lock and then
// deleted on the application thread.
class TriggerFireManagerWork : public QObject {
    Q_OBJECT
public:
    static TriggerFireManagerWork& Instance();

    bool Init();
    bool LoadTriggerFires();
    TriggerFire* NewTriggerFire(quint64 type, TriggerObject* object);
    bool InsertTriggerFire(const QString& planUuid, quint64 type, TriggerFire* fire);
    TriggerFire* NewTriggerFireCommand(TriggerObject* object);
    quint64 StartTriggerFire(TriggerFire* fire);
    bool StartAllTriggerFires();
    void StopAllTriggerFires();
    bool RemoveTriggerFire(const QString& planUuid, quint64 type);
    void DeleteAllTriggerFires();
    void UnInit();
    bool FireEventTrigger(quint64 eventType);

    // Inspection for tests and benchmarks.
    int DateTimeFireCount();
    int EventFireCount(quint64 eventType);
    TriggerFire* DateTimeFireOf(const QString& planUuid);

private Q_SLOTS:
    void onAtTimerOut();
    void onTimerFireTimeout(QString planName);

private:
    friend class TriggerFireManager;

    TriggerFireManagerWork() = default;
    bool InsertDateTimeFireLocked(const QString& planUuid, TriggerFire* fire);
    TriggerFire* NewDateTimeFireLocked(TriggerObject* object);
    bool PollOne(TriggerFire* fire, qint64& earliestDueMSecs);
    void EndTimerFire(const QString& planUuid, TriggerFire* fire, TriggerObject* object, quint64 state);
    static void EndTrigger(TriggerObject* object, const QString& fireClass);

    QHash<QString, TriggerFire*>* m_dateTimeFires = nullptr;
    QMutex m_dateTimeMutex;
    QMultiHash<quint64, TriggerFire*>* m_eventFires = nullptr;
    QMutex m_eventMutex;
    // No fire of the date-time table is due before this time, so polls until
    // then need not walk the table. Any insertion clears it. Guarded by
    // m_dateTimeMutex.
    qint64 m_pollIdleUntilMSecs = 0;
};
