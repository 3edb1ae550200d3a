#include "CommCommand.h"

#include "BoundedRead.h"

void CommCommand::Read(QDataStream& in) {
    in >> BoundedRead(m_planUuid) >> BoundedRead(m_traceFlag) >> m_triggerFlag >> m_triggerType;
    m_communAttribute.Read(in);
}
