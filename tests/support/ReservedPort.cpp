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

qintptr ReservedPort::Listen() {
    if (m_descriptor < 0 || ::listen(m_descriptor, SOMAXCONN) != 0) {
        return -1;
    }
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    return descriptor;
}
