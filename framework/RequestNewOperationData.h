#pragma once

#include "BoundedRead.h"
#include "TriggerAttribute.h"

// Payload of the new-plan command (200).
class RequestNewOperationData : public CommandObj {
public:
    QString getPlanName() const { return m_planName; }
    void setPlanName(const QString& value) { m_planName = value; }
    TriggerAttribute getTriggerAttribute() const { return m_triggerAttribute; }
    void setTriggerAttribute(const TriggerAttribute& value) { m_triggerAttribute = value; }

    void Read(QDataStream& in) override {
        in >> BoundedRead(m_planName);
        m_triggerAttribute.Read(in);
    }
    void Write(QDataStream& out) const override {
        out << m_planName;
        m_triggerAttribute.Write(out);
    }

private:
    QString m_planName;
    TriggerAttribute m_triggerAttribute;
};
