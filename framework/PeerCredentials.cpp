#include "PeerCredentials.h"

#include <QHostAddress>

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <optional>

namespace {
// An IPv4 peer of an IPv6 listener arrives as a mapped address; the kernel
// files its socket under IPv4.
void UnmapIpv4(sockaddr_storage& address) {
    if (address.ss_family != AF_INET6) {
        return;
    }
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    if (!IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr)) {
        return;
    }
    sockaddr_in v4 = {};
    v4.sin_family = AF_INET;
    v4.sin_port = v6.sin6_port;
    std::memcpy(&v4.sin_addr, &v6.sin6_addr.s6_addr[12], sizeof(v4.sin_addr));
    std::memset(&address, 0, sizeof(address));
    std::memcpy(&address, &v4, sizeof(v4));
}

QHostAddress HostAddress(const sockaddr_storage& address) {
    return QHostAddress(reinterpret_cast<const sockaddr*>(&address));
}

// Port in network order, and the address bytes into a sock_diag id field.
__be16 FillDiagAddress(const sockaddr_storage& address, __be32* field) {
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        std::memcpy(field, &v4.sin_addr, sizeof(v4.sin_addr));
        return v4.sin_port;
    }
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    std::memcpy(field, &v6.sin6_addr, sizeof(v6.sin6_addr));
    return v6.sin6_port;
}

// Asks the kernel for the one TCP socket whose local end is the peer's and
// whose remote end is ours: the peer's own socket, with its owner's uid.
std::optional<uid_t> TcpPeerUid(const sockaddr_storage& local, const sockaddr_storage& peer) {
    struct {
        nlmsghdr header;
        inet_diag_req_v2 request;
    } message = {};
    message.header.nlmsg_len = sizeof(message);
    message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    message.header.nlmsg_flags = NLM_F_REQUEST;
    message.request.sdiag_family = static_cast<__u8>(peer.ss_family);
    message.request.sdiag_protocol = IPPROTO_TCP;
    message.request.idiag_states = ~0U;
    message.request.id.idiag_sport = FillDiagAddress(peer, message.request.id.idiag_src);
    message.request.id.idiag_dport = FillDiagAddress(local, message.request.id.idiag_dst);
    message.request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    message.request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;

    const int diag = ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (diag < 0) {
        return std::nullopt;
    }
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    std::optional<uid_t> uid;
    alignas(nlmsghdr) char reply[8192];
    // The kernel answers an exact lookup before sendto returns, so the reply
    // is read without waiting.
    if (::sendto(diag, &message, sizeof(message), 0, reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel)) ==
        static_cast<ssize_t>(sizeof(message))) {
        const ssize_t length = ::recv(diag, reply, sizeof(reply), MSG_DONTWAIT);
        const auto* header = reinterpret_cast<const nlmsghdr*>(reply);
        if (length > 0 && NLMSG_OK(header, static_cast<unsigned>(length)) &&
            header->nlmsg_type == SOCK_DIAG_BY_FAMILY &&
            header->nlmsg_len >= NLMSG_LENGTH(sizeof(inet_diag_msg))) {
            uid = static_cast<const inet_diag_msg*>(NLMSG_DATA(header))->idiag_uid;
        }
    }
    ::close(diag);
    return uid;
}
} // namespace

PeerCredentials PeerCredentials::OfUser(uid_t uid) {
    PeerCredentials peer;
    peer.m_kind = Kind::User;
    peer.m_uid = uid;
    return peer;
}

PeerCredentials PeerCredentials::OfSocket(int descriptor) {
    sockaddr_storage local = {};
    socklen_t localLength = sizeof(local);
    sockaddr_storage remote = {};
    socklen_t remoteLength = sizeof(remote);
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) {
        return PeerCredentials();
    }
    if (local.ss_family == AF_UNIX) {
        ucred credentials = {};
        socklen_t length = sizeof(credentials);
        if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
            return PeerCredentials();
        }
        return OfUser(credentials.uid);
    }
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&remote), &remoteLength) != 0) {
        return PeerCredentials();
    }
    UnmapIpv4(local);
    UnmapIpv4(remote);
    if (remote.ss_family != AF_INET && remote.ss_family != AF_INET6) {
        return PeerCredentials();
    }
    const QHostAddress remoteHost = HostAddress(remote);
    if (!remoteHost.isLoopback()) {
        PeerCredentials peer;
        peer.m_kind = Kind::Remote;
        peer.m_remoteAddress = remoteHost.toString();
        return peer;
    }
    const std::optional<uid_t> uid = TcpPeerUid(local, remote);
    return uid ? OfUser(*uid) : PeerCredentials();
}

QString PeerCredentials::Describe() const {
    switch (m_kind) {
    case Kind::User:
        return QString("user id %1").arg(m_uid);
    case Kind::Remote:
        return QString("remote peer %1").arg(m_remoteAddress);
    case Kind::Unknown:
        break;
    }
    return "a peer whose user id is unknown";
}
