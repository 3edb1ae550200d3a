#pragma once

#include <QtGlobal>

#include <atomic>

class AtTimeFire;
class FireHost;
class QObject;
class TimerFire;
class TriggerObject;

// Common base of the live objects that watch one trigger. A fire points to its
// plan's registered trigger object without owning it.
//
// Not a QObject: a million fires would each carry a QObjectPrivate (about a
// hundred and thirty bytes with its allocation) for a thread affinity that the
// host already has. A hosted fire lives on its host's home thread; its timer is
// armed and it is deleted there.
class TriggerFire {
public:
    TriggerFire() = default;
    virtual ~TriggerFire();
    TriggerFire(const TriggerFire&) = delete;
    TriggerFire& operator=(const TriggerFire&) = delete;

    virtual void SetTriggerObject(TriggerObject* object);
    virtual TriggerObject* GetTriggerObject();
    virtual quint64 Start();
    virtual void Stop();
    virtual bool NowFire(TriggerObject* object);

    quint64 getFireKind() const { return m_fireKind; }
    // Set once, before the fire starts; a fire without a host talks to the
    // agent link itself and has no one to tell of its time-outs.
    void setHost(FireHost* host) { m_host = host; }
    // The object whose thread the fire lives on; null for a fire without a
    // home, which lives on whichever thread uses it.
    QObject* home() const;
    bool OnHomeThread() const;

    // Null unless the fire is of that class.
    virtual AtTimeFire* AsAtTimeFire() { return nullptr; }
    virtual TimerFire* AsTimerFire() { return nullptr; }
    // The same for an entry of a table, which may be null.
    static AtTimeFire* AtTimeOf(TriggerFire* fire) {
        return fire != nullptr ? fire->AsAtTimeFire() : nullptr;
    }
    static TimerFire* TimerOf(TriggerFire* fire) { return fire != nullptr ? fire->AsTimerFire() : nullptr; }

protected:
    void setFireKind(quint8 kind) { m_fireKind = kind; }
    FireHost* host() const { return m_host; }
    // Hands the agent link a command built from a copy of the trigger.
    bool Send(TriggerObject* object, quint64 commandType) const;

private:
    // Atomic because a fire may be stopped from the command handler's thread
    // while a queued time-out of it is delivered on the application thread.
    std::atomic<TriggerObject*> m_triggerObject{nullptr};
    FireHost* m_host = nullptr;
    // Last and narrow: the subclasses' own small fields fill the padding
    // behind it, which a million fires would each carry.
    quint8 m_fireKind = 0;
};
