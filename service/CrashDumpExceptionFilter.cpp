#include "CrashDumpExceptionFilter.h"

#include "framework/Clock.h"
#include "platform/SignalStack.h"

#include <backward.hpp>

#include <unwind.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdint>
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
constexpr int kMaxFrames = 64;

struct Frame {
    uintptr_t address;
    // A return address points after the call; the call itself is one byte
    // earlier. The faulting frame's address is the instruction itself.
    bool exact;
};

char g_dumpDir[PATH_MAX];
// The zone's offset when the service started: local time cannot be computed
// safely in a signal handler, so a change of daylight saving time since then
// shifts the report's time stamp by that hour.
long g_utcOffsetSeconds = 0;
Frame g_frames[kMaxFrames];
int g_frameCount = 0;
std::atomic<bool> g_handling{false};
volatile sig_atomic_t g_signal = 0;
volatile sig_atomic_t g_terminating = 0;

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

void WriteNumber(int fd, unsigned long long value, unsigned base, int minDigits = 1) {
    char digits[32];
    int length = 0;
    do {
        digits[length++] = "0123456789abcdef"[value % base];
        value /= base;
    } while (value != 0 || length < minDigits);
    char text[32];
    for (int i = 0; i < length; ++i) {
        text[i] = digits[length - 1 - i];
    }
    WriteAll(fd, text, static_cast<size_t>(length));
}

void WriteHex(int fd, uintptr_t value) {
    WriteText(fd, "0x");
    WriteNumber(fd, value, 16);
}

const char* SignalName(int signal) {
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGFPE:
        return "SIGFPE";
    case SIGILL:
        return "SIGILL";
    case SIGABRT:
        return "SIGABRT";
    default:
        return "signal";
    }
}

// Calendar fields of a count of seconds since the epoch, without the C
// library (its conversions take locks).
struct CivilTime {
    long long year;
    unsigned month, day, hour, minute, second;
};

CivilTime ToCivil(long long seconds) {
    long long days = seconds / 86400;
    long long rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Howard Hinnant's days-to-civil algorithm.
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const long long dayOfEra = days - era * 146097;
    const long long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const long long shifted = (5 * dayOfYear + 2) / 153;
    CivilTime civil = {};
    civil.day = static_cast<unsigned>(dayOfYear - (153 * shifted + 2) / 5 + 1);
    civil.month = static_cast<unsigned>(shifted < 10 ? shifted + 3 : shifted - 9);
    civil.year = yearOfEra + era * 400 + (civil.month <= 2 ? 1 : 0);
    civil.hour = static_cast<unsigned>(rest / 3600);
    civil.minute = static_cast<unsigned>(rest / 60 % 60);
    civil.second = static_cast<unsigned>(rest % 60);
    return civil;
}

// "yyyyMMddhhmmss" into a buffer of at least 15 characters.
void FormatStamp(const CivilTime& civil, char* out) {
    const unsigned long long fields[] = {static_cast<unsigned long long>(civil.year),
                                         civil.month,
                                         civil.day,
                                         civil.hour,
                                         civil.minute,
                                         civil.second};
    const int widths[] = {4, 2, 2, 2, 2, 2};
    int at = 0;
    for (int field = 0; field < 6; ++field) {
        unsigned long long value = fields[field];
        for (int digit = widths[field] - 1; digit >= 0; --digit) {
            out[at + digit] = static_cast<char>('0' + value % 10);
            value /= 10;
        }
        at += widths[field];
    }
    out[at] = '\0';
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

void PrepareUtcOffset() {
    const time_t seconds = static_cast<time_t>(Clock::nowMSecsSinceEpoch() / 1000);
    struct tm local = {};
    localtime_r(&seconds, &local);
    g_utcOffsetSeconds = local.tm_gmtoff;
}

_Unwind_Reason_Code CollectFrame(struct _Unwind_Context* context, void*) {
    if (g_frameCount >= kMaxFrames) {
        return _URC_END_OF_STACK;
    }
    int beforeInstruction = 0;
    const uintptr_t address = _Unwind_GetIPInfo(context, &beforeInstruction);
    if (address == 0) {
        return _URC_END_OF_STACK;
    }
    g_frames[g_frameCount++] = Frame{address, beforeInstruction != 0};
    return _URC_NO_REASON;
}

// libgcc's unwinder is loaded with the C++ runtime; walking once here binds
// its symbols and reads the unwind tables, so that the walk in the handler
// neither loads nor allocates anything.
void PrepareUnwinder() {
    _Unwind_Backtrace(&CollectFrame, nullptr);
    g_frameCount = 0;
}

void WriteHeader(int fd, int signal, void* faultAddress, const CivilTime& utc, const char* localStamp) {
    WriteText(fd, "OrvelSchedulerService crash report\nsignal: ");
    WriteNumber(fd, static_cast<unsigned>(signal), 10);
    WriteText(fd, " (");
    WriteText(fd, SignalName(signal));
    WriteText(fd, g_terminating != 0 ? ") after std::terminate\nfault address: " : ")\nfault address: ");
    WriteHex(fd, reinterpret_cast<uintptr_t>(faultAddress));
    WriteText(fd, "\nprocess id: ");
    WriteNumber(fd, static_cast<unsigned long long>(::getpid()), 10);
    WriteText(fd, "\nthread id: ");
    WriteNumber(fd, static_cast<unsigned long long>(::syscall(SYS_gettid)), 10);
    WriteText(fd, "\ntime: ");
    char utcStamp[16];
    FormatStamp(utc, utcStamp);
    WriteText(fd, utcStamp);
    WriteText(fd, " UTC (local ");
    WriteText(fd, localStamp);
    WriteText(fd, ")\n");
}

void WriteRawFrames(int fd) {
    WriteText(fd, "\nreturn addresses of the crashing thread (see the memory map below):\n");
    g_frameCount = 0;
    _Unwind_Backtrace(&CollectFrame, nullptr);
    for (int i = 0; i < g_frameCount; ++i) {
        WriteText(fd, "#");
        WriteNumber(fd, static_cast<unsigned>(i), 10, 2);
        WriteText(fd, " ");
        WriteHex(fd, g_frames[i].address);
        WriteText(fd, "\n");
    }
}

void AppendMaps(int fd) {
    WriteText(fd, "\n/proc/self/maps:\n");
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

// Not async-signal-safe (libdw allocates and opens files): it runs last, under
// the watchdog.
void AppendSymbolizedFrames(int fd) {
    WriteText(fd, "\nsymbolized backtrace:\n");
    backward::TraceResolver resolver;
    std::string text;
    for (int i = 0; i < g_frameCount; ++i) {
        const uintptr_t lookup = g_frames[i].exact ? g_frames[i].address : g_frames[i].address - 1;
        const backward::ResolvedTrace resolved =
            resolver.resolve(backward::ResolvedTrace(backward::Trace(reinterpret_cast<void*>(lookup), i)));
        char line[64];
        std::snprintf(line, sizeof(line), "#%02d 0x%zx in ", i, static_cast<size_t>(g_frames[i].address));
        text = line;
        text += resolved.object_function.empty() ? std::string("??") : resolved.object_function;
        if (!resolved.source.filename.empty()) {
            text += " at " + resolved.source.filename + ":" + std::to_string(resolved.source.line);
        }
        text += " (" + resolved.object_filename + ")\n";
        WriteText(fd, text.c_str());
    }
}

// Fires when the report has not been finished in time: the process then ends
// by the crash's own signal, from whichever thread receives the alarm.
void OnWatchdog(int) {
    ::signal(g_signal, SIG_DFL);
    ::raise(g_signal);
}

void OnTerminate() {
    g_terminating = 1;
    std::abort();
}

void OnSignal(int signal, siginfo_t* info, void*) {
    // A second crash, in the writer or on another thread, ends the process by
    // its signal at once rather than overwriting the report.
    if (g_handling.exchange(true)) {
        ::signal(signal, SIG_DFL);
        ::raise(signal);
        return;
    }
    CrashDumpExceptionFilter::Handle(signal, info->si_addr);
    // SA_RESETHAND restored the default action; raising again ends the process
    // by this signal.
    ::raise(signal);
}

void ArmWatchdog(int signal) {
    g_signal = signal;
    struct sigaction action = {};
    action.sa_handler = &OnWatchdog;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_ONSTACK;
    ::sigaction(SIGALRM, &action, nullptr);
    ::alarm(CrashDumpExceptionFilter::kWatchdogSeconds);
}
} // namespace

void CrashDumpExceptionFilter::Install() {
    PrepareDumpDir();
    PrepareUtcOffset();
    PrepareUnwinder();
    SignalStack::EnsureForCurrentThread();
    struct sigaction action = {};
    action.sa_sigaction = &OnSignal;
    sigemptyset(&action.sa_mask);
    // SA_NODEFER: the handler's own raise, and the watchdog's, must not wait
    // for the handler to return.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND | SA_NODEFER;
    for (int signal : kFatalSignals) {
        sigaction(signal, &action, nullptr);
    }
    std::set_terminate(&OnTerminate);
}

long CrashDumpExceptionFilter::Handle(int signal, void* faultAddress) {
    ArmWatchdog(signal);
    const long long seconds = Clock::nowMSecsSinceEpoch() / 1000;
    char localStamp[16];
    FormatStamp(ToCivil(seconds + g_utcOffsetSeconds), localStamp);
    char path[PATH_MAX + 64];
    // Assembled by hand: snprintf is not async-signal-safe.
    const size_t dirLength = std::strlen(g_dumpDir);
    std::memcpy(path, g_dumpDir, dirLength);
    std::memcpy(path + dirLength, "schedulerservice", 16);
    std::memcpy(path + dirLength + 16, localStamp, 14);
    std::memcpy(path + dirLength + 30, ".dmp", 5);
    ::mkdir(g_dumpDir, 0750);
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (fd < 0) {
        return 1;
    }
    // The header goes first: the unwinder may have to wait for a lock that
    // the crashed thread, or another, holds.
    WriteHeader(fd, signal, faultAddress, ToCivil(seconds), localStamp);
    WriteRawFrames(fd);
    AppendMaps(fd);
    AppendSymbolizedFrames(fd);
    ::close(fd);
    return 1;
}
