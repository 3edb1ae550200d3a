#pragma once

#include "TriggerFire.h"

#include <QString>

// Fire of an event trigger (logon, logoff, lock, unlock): fired by session
// events, never by time; it never finishes by itself.
class EventerFire : public TriggerFire {
public:
    EventerFire();

    void SetTriggerObject(TriggerObject* object) override;
    quint64 Start() override;
    void Stop() override;
    QString getPlanUuid() const { return m_planUuid; }

private:
    QString m_planUuid;
};
