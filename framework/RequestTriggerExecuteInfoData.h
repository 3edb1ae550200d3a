#pragma once

#include "BoundedRead.h"
#include "CommandObj.h"
#include "WireWriter.h"

#include <QString>

// Payload of the execute-trigger (600) and trigger-info (601) commands.
class RequestTriggerExecuteInfoData : public CommandObj {
public:
    QString getNextStartTime() const { return m_nextStartTime; }
    void setNextStartTime(const QString& value) { m_nextStartTime = value; }
    quint64 getTriggerEndFlag() const { return m_triggerEndFlag; }
    void setTriggerEndFlag(quint64 value) { m_triggerEndFlag = value; }

    void Read(QDataStream& in) override { in >> BoundedRead(m_nextStartTime) >> m_triggerEndFlag; }
    void Write(QDataStream& out) const override { WriteFields(out); }
    void AppendTo(WireWriter& out) const override { WriteFields(out); }

private:
    template <typename Out> void WriteFields(Out& out) const { out << m_nextStartTime << m_triggerEndFlag; }

    QString m_nextStartTime;
    quint64 m_triggerEndFlag = 0;
};
