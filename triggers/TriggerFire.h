#pragma once

#include <QObject>

#include <atomic>

class FireHost;
class TriggerObject;

// Common base of the live objects that watch one trigger. A fire points to its
// plan's registered trigger object without owning it.
class TriggerFire : public QObject {
    Q_OBJECT
public:
    explicit TriggerFire(QObject* parent = nullptr);
    ~TriggerFire() override;

    virtual void SetTriggerObject(TriggerObject* object);
    virtual TriggerObject* GetTriggerObject();
    virtual quint64 Start();
    virtual void Stop();
    virtual bool NowFire(TriggerObject* object);

    quint64 getFireKind() const { return m_fireKind; }
    // Set once, before the fire starts; a fire without a host talks to the
    // agent link itself and has no one to tell of its time-outs.
    void setHost(FireHost* host) { m_host = host; }

protected:
    void setFireKind(quint64 kind) { m_fireKind = kind; }
    FireHost* host() const { return m_host; }
    // Hands the agent link a command built from a copy of the trigger.
    bool Send(TriggerObject* object, quint64 commandType) const;

private:
    quint64 m_fireKind = 0;
    FireHost* m_host = nullptr;
    // Atomic because a fire may be stopped from the command handler's thread
    // while a queued time-out of it is delivered on the application thread.
    std::atomic<TriggerObject*> m_triggerObject{nullptr};
};
