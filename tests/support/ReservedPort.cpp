#include "ReservedPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

ReservedPort::ReservedPort() {
    m_descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (m_descriptor < 0 || ::bind(m_descriptor, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return;
    }
    m_port = ntohs(address.sin_port);
}

ReservedPort::~ReservedPort() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

// Connections the listener accepted wait in TIME_WAIT after it has gone; a
// listener can come back on the port only if this one allowed reuse. Set only
// now, so that no other socket can share the port while it is reserved.
qintptr ReservedPort::Listen() {
    const int reuse = 1;
    if (m_descriptor < 0 ||
        ::setsockopt(m_descriptor, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse)) != 0 ||
        ::listen(m_descriptor, SOMAXCONN) != 0) {
        return -1;
    }
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    return descriptor;
}
