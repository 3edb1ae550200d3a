#include "BenchClient.h"

#include "framework/CommandBuilder.h"
#include "framework/RequestCommand.h"
#include "framework/SchedulerPlanData.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

BenchClient::BenchClient() : m_fd(::socket(AF_INET, SOCK_STREAM, 0)) {}

BenchClient::~BenchClient() {
    ::close(m_fd);
}

bool BenchClient::Connect(quint16 port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        return false;
    }
    const int one = 1;
    ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    return true;
}

void BenchClient::Send(const QByteArray& frame) {
    (void)!::write(m_fd, frame.constData(), static_cast<size_t>(frame.size()));
}

bool BenchClient::ReadReply() {
    QByteArray payload;
    while (!m_reader.Next(payload)) {
        char buffer[4096];
        const ssize_t got = ::read(m_fd, buffer, sizeof(buffer));
        if (got <= 0) {
            return false;
        }
        m_reader.Append(QByteArray(buffer, static_cast<int>(got)));
    }
    return true;
}

QByteArray BenchClient::ModifyFrame(const QString& planUuid) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BuilderCommand(204));
    command->setPlanUuid(planUuid);
    SchedulerPlanData data;
    data.getRfrnSchedulerPlan().setPlanUuid(planUuid);
    data.getRfrnSchedulerPlan().getObjectTriggerAttribute().setTriggerType(257);
    CommandBuilder::DataToBytearray(&data, static_cast<RequestCommand*>(command.get())->getRfrnRequestData());
    return FrameReader::Frame(CommandBuilder::CommandToBytearray(command.get()));
}
