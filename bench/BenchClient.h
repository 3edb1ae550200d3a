#pragma once

#include "framework/FrameReader.h"

#include <QByteArray>

// A blocking client of the command server, for measuring round trips from
// outside the service's threads.
class BenchClient {
public:
    BenchClient();
    ~BenchClient();
    BenchClient(const BenchClient&) = delete;
    BenchClient& operator=(const BenchClient&) = delete;

    bool Connect(quint16 port);
    void Send(const QByteArray& frame);
    // Blocks until one whole reply frame has arrived; false when the
    // connection ended first.
    bool ReadReply();

    // A framed modify-plan command (204) that turns the plan into a logon
    // trigger: it takes the whole road through the service and touches no
    // calendar fire.
    static QByteArray ModifyFrame(const QString& planUuid);

private:
    int m_fd;
    FrameReader m_reader;
};
