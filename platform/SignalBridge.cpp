#include "SignalBridge.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {
int g_pipe[2] = {-1, -1};
}

SignalBridge::SignalBridge(std::function<void(int)> onSignal, QObject* parent)
    : QObject(parent), m_onSignal(std::move(onSignal)) {
    if (g_pipe[0] < 0 && ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalBridge::onReadable);
    struct sigaction action = {};
    action.sa_handler = &SignalBridge::Handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

SignalBridge::~SignalBridge() {
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
}

void SignalBridge::Handler(int signal) {
    const unsigned char byte = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
}

void SignalBridge::onReadable() {
    unsigned char byte = 0;
    while (::read(g_pipe[0], &byte, 1) == 1) {
        m_onSignal(byte);
    }
}
