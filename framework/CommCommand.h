#pragma once

#include "CommunAttribute.h"
#include "WireWriter.h"

#include <QString>

// Base of every command on the wire. Commands are created by CommandBuilder
// and destroyed through CommandBuilder::DestroyCommand.
class CommCommand {
public:
    explicit CommCommand(quint64 commandType) : m_commandType(commandType) {}
    virtual ~CommCommand() = default;

    quint64 getCommandType() const { return m_commandType; }
    QString getPlanUuid() const { return m_planUuid; }
    void setPlanUuid(const QString& value) { m_planUuid = value; }
    QString getTraceFlag() const { return m_traceFlag; }
    void setTraceFlag(const QString& value) { m_traceFlag = value; }
    quint64 getTriggerFlag() const { return m_triggerFlag; }
    void setTriggerFlag(quint64 value) { m_triggerFlag = value; }
    quint64 getTriggerType() const { return m_triggerType; }
    void setTriggerType(quint64 value) { m_triggerType = value; }
    CommunAttribute& getObjectCommunAttribute() { return m_communAttribute; }
    const CommunAttribute& getObjectCommunAttribute() const { return m_communAttribute; }

    // The command type is not part of Read/Write: CommandBuilder writes it first
    // so that it can build the right class before reading the rest.
    virtual void Read(QDataStream& in);
    virtual void Write(QDataStream& out) const { WriteFields(out); }
    // The bytes of Write, appended straight to the writer's array.
    virtual void AppendTo(WireWriter& out) const { WriteFields(out); }

protected:
    template <typename Out> void WriteFields(Out& out) const {
        out << m_planUuid << m_traceFlag << m_triggerFlag << m_triggerType;
        m_communAttribute.Write(out);
    }

private:
    quint64 m_commandType;
    QString m_planUuid;
    QString m_traceFlag;
    quint64 m_triggerFlag = 0;
    quint64 m_triggerType = 0;
    CommunAttribute m_communAttribute;
};
