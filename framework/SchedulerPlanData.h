#pragma once

#include "SchedulerPlan.h"

// Payload of the modify-plan command (204).
class SchedulerPlanData : public CommandObj {
public:
    SchedulerPlan& getRfrnSchedulerPlan() { return m_plan; }
    const SchedulerPlan& getRfrnSchedulerPlan() const { return m_plan; }

    void Read(QDataStream& in) override { m_plan.Read(in); }
    void Write(QDataStream& out) const override { m_plan.Write(out); }

private:
    SchedulerPlan m_plan;
};
