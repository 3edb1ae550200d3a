#pragma once

#include "CommCommand.h"

// The answer to a request: result 0 for success, 1 for failure.
class ResultCommand : public CommCommand {
public:
    static constexpr quint64 kType = 2000;

    ResultCommand() : CommCommand(kType) {}

    quint64 getUintResult() const { return m_uintResult; }
    void setUintResult(quint64 value) { m_uintResult = value; }
    quint64 getRequestCommandType() const { return m_requestCommandType; }

    // Copies the identity of the request this result answers.
    void GetRequestCommandInfo(const CommCommand& request);

    void Read(QDataStream& in) override {
        CommCommand::Read(in);
        in >> m_requestCommandType >> m_uintResult;
    }
    void Write(QDataStream& out) const override { WriteFields(out); }
    void AppendTo(WireWriter& out) const override { WriteFields(out); }

private:
    template <typename Out> void WriteFields(Out& out) const {
        CommCommand::WriteFields(out);
        out << m_requestCommandType << m_uintResult;
    }

    quint64 m_requestCommandType = 0;
    quint64 m_uintResult = 0;
};
