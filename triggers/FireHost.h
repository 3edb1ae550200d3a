#pragma once

#include <QtGlobal>

class QObject;
class TimerFire;
class TriggerObject;

// What a fire reaches outside itself: the agent link for the commands built
// from its trigger, and whoever handles its timer's time-outs. One host
// serves every fire; a fire keeps only a pointer to it, where a connection or
// a handler per fire would cost each of a million fires its own.
class FireHost {
public:
    virtual ~FireHost() = default;
    // Hands the agent link execute-trigger or trigger-info for a copy of the
    // trigger; false when the link refused it.
    virtual bool Send(const TriggerObject& object, quint64 commandType) = 0;
    // On the fire's thread, inside the fire's own call, with the due instant
    // that expired (0 when none is known).
    virtual void TimerExpired(TimerFire& fire, qint64 expiredDueMSecs) = 0;
    // On another thread than the fire's: the host arms the fire on the fire's
    // own thread, unless it has been replaced or deleted by then.
    virtual void ArmAtHome(TimerFire& fire, qint64 dueMSecs, qint64 interval) = 0;
    // The object on whose thread the hosted fires live; null: the caller's.
    virtual QObject* FireHome() { return nullptr; }
};
