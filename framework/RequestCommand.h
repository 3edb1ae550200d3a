#pragma once

#include "BoundedRead.h"
#include "CommCommand.h"

#include <QByteArray>

// A command that asks for something; its payload is a serialised CommandObj.
class RequestCommand : public CommCommand {
public:
    using CommCommand::CommCommand;

    QByteArray& getRfrnRequestData() { return m_requestData; }
    const QByteArray& getRfrnRequestData() const { return m_requestData; }

    void Read(QDataStream& in) override {
        CommCommand::Read(in);
        in >> BoundedRead(m_requestData);
    }
    void Write(QDataStream& out) const override {
        CommCommand::Write(out);
        out << m_requestData;
    }

private:
    QByteArray m_requestData;
};
