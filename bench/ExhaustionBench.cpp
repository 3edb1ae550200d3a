// The command server against descriptor exhaustion, from outside: the real
// service runs under an open-file limit, a crowd of clients connect and send
// nothing, and then one client sends a valid plan command. Reports how long
// its reply took, the service's CPU while the crowd holds on, and the lines
// the service wrote about it.
// Usage: exhaustion_bench [connections=1100] [open-file limit=1024] [MaxClients=256] [seconds=10]
#include "BenchClient.h"
#include "ReservedPort.h"
#include "ServiceUnderTest.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {
using Steady = std::chrono::steady_clock;

// A connection that is established (or waits in the backlog) and sends
// nothing; -1 when even that failed within 2 s.
int IdleConnection(quint16 port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval timeout{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Milliseconds from connecting to the reply of one modify-plan command; -1
// when no reply came.
double CommandReplyMSecs(quint16 port, const QString& plan) {
    const auto start = Steady::now();
    BenchClient client;
    if (!client.Connect(port)) {
        return -1;
    }
    client.Send(BenchClient::ModifyFrame(plan));
    if (!client.ReadReply()) {
        return -1;
    }
    return std::chrono::duration<double, std::milli>(Steady::now() - start).count();
}

int CountLines(const QString& logPath, const char* text) {
    QFile log(logPath);
    log.open(QIODevice::ReadOnly);
    return log.readAll().count(text);
}

void SetOpenFileLimit(rlim_t soft) {
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = qMin(soft, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int connections = arguments.value(1, "1100").toInt();
    const rlim_t nofile = arguments.value(2, "1024").toULong();
    const int maxClients = arguments.value(3, "256").toInt();
    const int seconds = arguments.value(4, "10").toInt();

    QTemporaryDir dir;
    QDir(dir.path()).mkpath("cfg");
    QDir(dir.path()).mkpath("data");
    ReservedPort agentPort;
    QFile config(dir.filePath("cfg/config.ini"));
    config.open(QIODevice::WriteOnly);
    config.write(QString("[Communication]\nSchedulerPort=0\nAgentPort=%1\nMaxClients=%2\n")
                     .arg(agentPort.port())
                     .arg(maxClients)
                     .toUtf8());
    config.close();

    // The child inherits the limit; this process then takes back its own.
    rlimit own = {};
    ::getrlimit(RLIMIT_NOFILE, &own);
    SetOpenFileLimit(nofile);
    ServiceUnderTest service(dir.path());
    const bool spawned = service.Spawn(QString(ORVEL_BIN_DIR) + "/OrvelSchedulerService");
    SetOpenFileLimit(own.rlim_max);
    const auto waitFrom = Steady::now();
    while (spawned && service.CommandPort() == 0 && Steady::now() - waitFrom < std::chrono::seconds(30)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        service.ScanLog();
    }
    const quint16 port = service.CommandPort();
    if (port == 0) {
        std::fprintf(stderr, "the service did not report its command port\n");
        return 1;
    }

    std::vector<int> idle;
    int refused = 0;
    for (int i = 0; i < connections; ++i) {
        const int fd = IdleConnection(port);
        if (fd < 0) {
            ++refused;
            continue;
        }
        idle.push_back(fd);
    }
    const double firstReply = CommandReplyMSecs(port, "exhaustion-first");
    const qint64 cpuBefore = service.CpuNanos();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const qint64 cpuUsed = service.CpuNanos() - cpuBefore;
    const double laterReply = CommandReplyMSecs(port, "exhaustion-later");

    const QString log = dir.filePath("log/schedulerservice.log");
    std::printf("%d idle connections (%d not even connected), open-file limit %lu, MaxClients %d\n",
                static_cast<int>(idle.size()), refused, static_cast<unsigned long>(nofile), maxClients);
    std::printf("valid command answered in %.1f ms right after the crowd, %.1f ms after %d s (-1 = never)\n",
                firstReply, laterReply, seconds);
    std::printf("service CPU while the crowd holds on: %.2f%% of one core over %d s\n",
                100.0 * static_cast<double>(cpuUsed) / (seconds * 1e9), seconds);
    std::printf("log: %d limit line(s), %d accept pause line(s), %d idle close line(s)\n",
                CountLines(log, "at its limit of"), CountLines(log, "pauses accepting"),
                CountLines(log, ": it sent nothing for"));
    for (const int fd : idle) {
        ::close(fd);
    }
    int exitCode = 0;
    service.Terminate(10, exitCode);
    return firstReply >= 0 && firstReply < 2000 ? 0 : 1;
}
