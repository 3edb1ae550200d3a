#include "FireTables.h"

#include "triggers/DateTimeFire.h"
#include "triggers/EventerFire.h"
#include "triggers/FireState.h"
#include "triggers/TriggerFire.h"

#include <QObject>

namespace {
template <typename Table> bool EndInTable(Table& table, const FireTables::Ends& ends) {
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
        FireTables::Retire(fire);
    }
    return true;
}

template <typename Table> void StopEach(Table* table) {
    if (table == nullptr) {
        return;
    }
    for (TriggerFire* fire : qAsConst(*table)) {
        if (fire == nullptr) {
            continue;
        }
        if (fire->getFireKind() == FireKinds::kDateTime) {
            static_cast<DateTimeFire*>(fire)->onkillDateTimer();
        }
        fire->Stop();
    }
}

template <typename Table> void DisposeAll(Table* table) {
    if (table == nullptr) {
        return;
    }
    for (TriggerFire* fire : qAsConst(*table)) {
        FireTables::Dispose(fire);
    }
    table->clear();
}
} // namespace

FireTables::~FireTables() {
    Destroy();
}

void FireTables::Create() {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        if (m_dateTime == nullptr) {
            m_dateTime = new DateTimeTable();
        }
    }
    QMutexLocker locker(&m_eventMutex);
    if (m_events == nullptr) {
        m_events = new EventTable();
    }
}

void FireTables::Destroy() {
    DeleteAllFires();
    {
        QMutexLocker locker(&m_eventMutex);
        delete m_events;
        m_events = nullptr;
    }
    QMutexLocker locker(&m_dateTimeMutex);
    delete m_dateTime;
    m_dateTime = nullptr;
}

void FireTables::DeleteAllFires() {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        BeforeDateTimeChangeLocked();
        DisposeAll(m_dateTime);
    }
    QMutexLocker locker(&m_eventMutex);
    DisposeAll(m_events);
}

bool FireTables::InsertDateTimeLocked(const QString& planUuid, TriggerFire* fire) {
    if (m_dateTime == nullptr || m_dateTime->contains(planUuid)) {
        return false;
    }
    BeforeDateTimeChangeLocked();
    m_dateTime->insert(planUuid, fire);
    return true;
}

void FireTables::ReserveDateTime(int fires) {
    QMutexLocker locker(&m_dateTimeMutex);
    if (m_dateTime != nullptr && m_dateTime->isEmpty()) {
        m_dateTime->reserve(fires);
    }
}

bool FireTables::InsertEvent(quint64 type, TriggerFire* fire) {
    QMutexLocker locker(&m_eventMutex);
    if (m_events == nullptr) {
        return false;
    }
    m_events->insert(type, fire);
    return true;
}

void FireTables::RemoveDateTime(const QString& planUuid) {
    QMutexLocker locker(&m_dateTimeMutex);
    RemoveDateTimeLocked(planUuid);
}

void FireTables::RemoveDateTimeLocked(const QString& planUuid) {
    if (m_dateTime != nullptr) {
        BeforeDateTimeChangeLocked();
        Retire(m_dateTime->take(planUuid));
    }
}

// A fire is listed under its plan's type: only that type's fires are looked
// at, not every event fire of the service (34 ms a command at a million
// plans).
void FireTables::RemoveEvent(quint64 type, const QString& planUuid) {
    QMutexLocker locker(&m_eventMutex);
    if (m_events == nullptr) {
        return;
    }
    for (auto it = m_events->find(type); it != m_events->end() && it.key() == type;) {
        TriggerFire* fire = it.value();
        if (fire == nullptr || static_cast<EventerFire*>(fire)->getPlanUuid() != planUuid) {
            ++it;
            continue;
        }
        it = m_events->erase(it);
        Retire(fire);
    }
}

bool FireTables::EndWhere(const Ends& ends) {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        BeforeDateTimeChangeLocked();
        if (m_dateTime != nullptr && !EndInTable(*m_dateTime, ends)) {
            return false;
        }
    }
    QMutexLocker locker(&m_eventMutex);
    return m_events == nullptr || EndInTable(*m_events, ends);
}

void FireTables::StopAll() {
    {
        QMutexLocker locker(&m_dateTimeMutex);
        StopEach(m_dateTime);
    }
    QMutexLocker locker(&m_eventMutex);
    StopEach(m_events);
}

bool FireTables::ForEachEventFire(quint64 type, const std::function<void(TriggerFire*)>& each) {
    QMutexLocker locker(&m_eventMutex);
    if (m_events == nullptr) {
        return false;
    }
    for (auto it = m_events->find(type); it != m_events->end() && it.key() == type; ++it) {
        if (it.value() != nullptr) {
            each(it.value());
        }
    }
    return true;
}

int FireTables::DateTimeCount() {
    QMutexLocker locker(&m_dateTimeMutex);
    return m_dateTime != nullptr ? m_dateTime->size() : 0;
}

int FireTables::EventCount(quint64 type) {
    QMutexLocker locker(&m_eventMutex);
    return m_events != nullptr ? m_events->count(type) : 0;
}

TriggerFire* FireTables::DateTimeFireOf(const QString& planUuid) {
    QMutexLocker locker(&m_dateTimeMutex);
    return DateTimeFireOfLocked(planUuid);
}

TriggerFire* FireTables::DateTimeFireOfLocked(const QString& planUuid) {
    return m_dateTime != nullptr ? m_dateTime->value(planUuid, nullptr) : nullptr;
}

void FireTables::BeforeDateTimeChangeLocked() {
    if (m_beforeDateTimeChange) {
        const BeforeChange beforeChange = std::move(m_beforeDateTimeChange);
        m_beforeDateTimeChange = nullptr;
        beforeChange();
    }
}

void FireTables::Dispose(TriggerFire* fire) {
    if (fire == nullptr) {
        return;
    }
    if (fire->OnHomeThread()) {
        delete fire;
        return;
    }
    QMetaObject::invokeMethod(
        fire->home(), [fire] { delete fire; }, Qt::QueuedConnection);
}

void FireTables::Retire(TriggerFire* fire) {
    if (fire != nullptr && fire->OnHomeThread()) {
        fire->Stop();
    }
    Dispose(fire);
}
