#pragma once

#include "BoundedRead.h"
#include "TriggerAttribute.h"

// A plan as the suite describes it to the scheduler.
class SchedulerPlan : public CommandObj {
public:
    QString getPlanUuid() const { return m_planUuid; }
    void setPlanUuid(const QString& value) { m_planUuid = value; }
    QString getPlanName() const { return m_planName; }
    void setPlanName(const QString& value) { m_planName = value; }
    TriggerAttribute& getObjectTriggerAttribute() { return m_triggerAttribute; }
    const TriggerAttribute& getObjectTriggerAttribute() const { return m_triggerAttribute; }

    void Read(QDataStream& in) override {
        in >> BoundedRead(m_planUuid) >> BoundedRead(m_planName);
        m_triggerAttribute.Read(in);
    }
    void Write(QDataStream& out) const override {
        out << m_planUuid << m_planName;
        m_triggerAttribute.Write(out);
    }

private:
    QString m_planUuid;
    QString m_planName;
    TriggerAttribute m_triggerAttribute;
};
