#include "CrashDumpExceptionFilter.h"

#include "framework/Clock.h"

#include <backward.hpp>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {
constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
// Symbolizing a backtrace with libdw needs far more stack than a signal
// handler usually gets.
constexpr size_t kAltStackSize = 4 * 1024 * 1024;

char g_dumpDir[PATH_MAX];
char g_altStack[kAltStackSize];
volatile sig_atomic_t g_terminating = 0;
volatile sig_atomic_t g_handling = 0;

void WriteAll(int fd, const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(fd, text, length);
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<size_t>(written);
    }
}

void WriteText(int fd, const char* text) {
    WriteAll(fd, text, std::strlen(text));
}

// The executable's directory, read from /proc so that it is known before the
// application object exists.
void PrepareDumpDir() {
    char exe[PATH_MAX] = {};
    const ssize_t length = ::readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    const char* slash = length > 0 ? std::strrchr(exe, '/') : nullptr;
    const size_t dirLength = slash != nullptr ? static_cast<size_t>(slash - exe) + 1 : 0;
    std::snprintf(g_dumpDir, sizeof(g_dumpDir), "%.*sdump/", static_cast<int>(dirLength), exe);
}

void AppendMaps(int fd) {
    const int maps = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (maps < 0) {
        return;
    }
    char buffer[4096];
    ssize_t got = 0;
    while ((got = ::read(maps, buffer, sizeof(buffer))) > 0) {
        WriteAll(fd, buffer, static_cast<size_t>(got));
    }
    ::close(maps);
}

void OnTerminate() {
    g_terminating = 1;
    std::abort();
}

void OnSignal(int signal, siginfo_t* info, void*) {
    // A crash inside the report writer itself must not overwrite the report.
    if (g_handling != 0) {
        ::signal(signal, SIG_DFL);
        ::raise(signal);
        return;
    }
    g_handling = 1;
    CrashDumpExceptionFilter::Handle(signal, info->si_addr);
    // SA_RESETHAND restored the default action; raising again ends the process
    // by this signal.
    ::raise(signal);
}
} // namespace

void CrashDumpExceptionFilter::Install() {
    PrepareDumpDir();
    tzset();
    stack_t stack = {};
    stack.ss_sp = g_altStack;
    stack.ss_size = sizeof(g_altStack);
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = &OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
    for (int signal : kFatalSignals) {
        sigaction(signal, &action, nullptr);
    }
    std::set_terminate(&OnTerminate);
}

long CrashDumpExceptionFilter::Handle(int signal, void* faultAddress) {
    ::mkdir(g_dumpDir, 0755);
    const time_t seconds = static_cast<time_t>(Clock::nowMSecsSinceEpoch() / 1000);
    struct tm local = {};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y%m%d%H%M%S", &local);
    char path[PATH_MAX + 64];
    std::snprintf(path, sizeof(path), "%sschedulerservice%s.dmp", g_dumpDir, stamp);
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return 1;
    }
    char header[512];
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(header, sizeof(header),
                  "OrvelSchedulerService crash report\nsignal: %d (%s)%s\nfault address: %p\nprocess id: %d\n"
                  "thread id: %ld\ntime: %s\n\nbacktrace of the crashing thread:\n",
                  signal, strsignal(signal), g_terminating ? " after std::terminate" : "", faultAddress,
                  static_cast<int>(::getpid()), static_cast<long>(::syscall(SYS_gettid)), stamp);
    WriteText(fd, header);
    FILE* stream = ::fdopen(::dup(fd), "w");
    if (stream != nullptr) {
        backward::StackTrace trace;
        trace.load_here(64);
        backward::Printer printer;
        printer.color_mode = backward::ColorMode::never;
        printer.address = true;
        printer.print(trace, stream);
        std::fclose(stream);
    }
    WriteText(fd, "\n/proc/self/maps:\n");
    AppendMaps(fd);
    ::close(fd);
    return 1;
}
