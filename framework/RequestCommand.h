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
    void Write(QDataStream& out) const override { WriteFields(out); }
    void AppendTo(WireWriter& out) const override { WriteFields(out); }

private:
    template <typename Out> void WriteFields(Out& out) const {
        CommCommand::WriteFields(out);
        out << m_requestData;
    }

    QByteArray m_requestData;
};
