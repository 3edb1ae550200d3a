#pragma once

#include <QString>

#include <sys/types.h>

// Who is at the other end of a connected socket. A Unix socket names its
// peer's user through SO_PEERCRED; a TCP connection between two loopback
// addresses through the kernel's socket table (sock_diag), which knows the
// user that owns the peer's socket. A peer on another host cannot be named.
class PeerCredentials {
public:
    enum class Kind {
        User,    // a local peer with a known user id
        Remote,  // a peer that is not on a loopback address
        Unknown, // a local peer whose user id could not be found
    };

    PeerCredentials() = default;
    static PeerCredentials OfUser(uid_t uid);
    // One lookup; costs a few system calls.
    static PeerCredentials OfSocket(int descriptor);

    Kind kind() const { return m_kind; }
    uid_t uid() const { return m_uid; }
    // For log lines: "user id 1000", "remote peer 10.0.0.5" or "a peer whose
    // user id is unknown".
    QString Describe() const;

private:
    Kind m_kind = Kind::Unknown;
    uid_t m_uid = 0;
    QString m_remoteAddress;
};
