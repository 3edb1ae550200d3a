#pragma once

#include <QHash>
#include <QMultiHash>
#include <QMutex>
#include <QString>

#include <functional>

class TriggerFire;

// The two tables of live fires: the date-time table (one fire per plan) and
// the event table (fires keyed by event type), each under its own
// non-recursive mutex. The registry mutex may be held while a table mutex is
// taken, never the other way round; the two table mutexes are never held
// together.
//
// A fire removed from another thread leaves its table under the lock and is
// deleted on the application thread, whose destructor stops its timer there:
// no thread but its own ever touches a fire that has left its table.
class FireTables {
public:
    using DateTimeTable = QHash<QString, TriggerFire*>;
    using EventTable = QMultiHash<quint64, TriggerFire*>;
    using Ends = std::function<bool(TriggerFire*)>;
    using BeforeChange = std::function<void()>;

    FireTables() = default;
    ~FireTables();
    FireTables(const FireTables&) = delete;
    FireTables& operator=(const FireTables&) = delete;

    void Create();
    // Deletes every fire and both tables.
    void Destroy();
    void DeleteAllFires();

    // Null before Create and after Destroy; read and change under the mutex.
    DateTimeTable* dateTimeLocked() { return m_dateTime; }
    QMutex& dateTimeMutex() { return m_dateTimeMutex; }

    // Called once, under the lock, before the date-time table next changes,
    // then forgotten: a walk that was cut short keeps an iterator into the
    // table, and an insertion or a removal may rehash it.
    void SetBeforeDateTimeChangeLocked(BeforeChange beforeChange) {
        m_beforeDateTimeChange = std::move(beforeChange);
    }

    bool InsertDateTimeLocked(const QString& planUuid, TriggerFire* fire);
    // Room for `fires` date-time fires, made before a load inserts them, so
    // that a million insertions do not rehash the table twenty times.
    void ReserveDateTime(int fires);
    bool InsertEvent(quint64 type, TriggerFire* fire);
    void RemoveDateTime(const QString& planUuid);
    void RemoveDateTimeLocked(const QString& planUuid);
    void RemoveEvent(quint64 type, const QString& planUuid);
    // Takes out, stops and deletes every fire for which `ends` is true; false
    // when an entry holds no fire.
    bool EndWhere(const Ends& ends);
    // Each fire's timer is stopped by a direct call: a signal connected to
    // every fire would cost a connection per fire and a duplicate check per
    // connect, quadratic in the number of fires.
    void StopAll();
    // Calls `each` for the event fires of the type, under the event lock.
    bool ForEachEventFire(quint64 type, const std::function<void(TriggerFire*)>& each);

    int DateTimeCount();
    int EventCount(quint64 type);
    TriggerFire* DateTimeFireOf(const QString& planUuid);
    TriggerFire* DateTimeFireOfLocked(const QString& planUuid);

    // Fires are deleted on the thread they belong to (the application
    // thread); from another thread they are handed over to be deleted there.
    static void Dispose(TriggerFire* fire);
    // Stops and deletes a fire that has left its table. From another thread
    // the fire is only handed to its own thread: nothing reaches it any more,
    // and its destructor stops its timer there.
    static void Retire(TriggerFire* fire);

private:
    void BeforeDateTimeChangeLocked();

    DateTimeTable* m_dateTime = nullptr;
    BeforeChange m_beforeDateTimeChange;
    QMutex m_dateTimeMutex;
    EventTable* m_events = nullptr;
    QMutex m_eventMutex;
};
