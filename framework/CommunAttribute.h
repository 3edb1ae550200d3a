#pragma once

#include "BoundedRead.h"

#include <QDataStream>
#include <QString>

// Where a command goes: protocol type 2 is TCP; a destination port of 0 means
// the agent's configured port.
class CommunAttribute {
public:
    quint64 getProtocolType() const { return m_protocolType; }
    void setProtocolType(quint64 value) { m_protocolType = value; }
    QString getDestSvrNameIp() const { return m_destSvrNameIp; }
    void setDestSvrNameIp(const QString& value) { m_destSvrNameIp = value; }
    quint64 getDestPort() const { return m_destPort; }
    void setDestPort(quint64 value) { m_destPort = value; }

    bool operator==(const CommunAttribute& other) const {
        return m_protocolType == other.m_protocolType && m_destSvrNameIp == other.m_destSvrNameIp &&
               m_destPort == other.m_destPort;
    }
    bool operator!=(const CommunAttribute& other) const { return !(*this == other); }

    void Read(QDataStream& in) { in >> m_protocolType >> BoundedRead(m_destSvrNameIp) >> m_destPort; }
    // To a QDataStream or a WireWriter, which write the same bytes.
    template <typename Out> void Write(Out& out) const {
        out << m_protocolType << m_destSvrNameIp << m_destPort;
    }

private:
    quint64 m_protocolType = 0;
    QString m_destSvrNameIp;
    quint64 m_destPort = 0;
};
