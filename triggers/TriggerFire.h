#pragma once

#include <QObject>

#include <atomic>

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

protected:
    void setFireKind(quint64 kind) { m_fireKind = kind; }

private:
    quint64 m_fireKind = 0;
    // Atomic because a fire may be stopped from the command handler's thread
    // while a queued time-out of it is delivered on the application thread.
    std::atomic<TriggerObject*> m_triggerObject{nullptr};
};
