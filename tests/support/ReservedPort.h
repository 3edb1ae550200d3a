#pragma once

#include <QtGlobal>

// A loopback port that belongs to this process without listening yet:
// connections to it are refused until Listen(), and no other test can be
// given it meanwhile. So an endpoint can be named before its server exists.
class ReservedPort {
public:
    ReservedPort();
    ~ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;

    quint16 port() const { return m_port; }
    // Starts listening and hands the descriptor over; -1 when already taken.
    qintptr Listen();

private:
    int m_descriptor = -1;
    quint16 m_port = 0;
};
