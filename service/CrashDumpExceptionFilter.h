#pragma once

// Writes a crash report when the process dies of a fatal signal (SIGSEGV,
// SIGBUS, SIGFPE, SIGILL, SIGABRT) or std::terminate, on whichever thread:
// dump/schedulerservice followed by the "yyyyMMddhhmmss" local time and
// ".dmp", beside the executable.
//
// The report is written in two parts. The essentials (signal, faulting
// address, process and thread id, time, the raw return addresses and
// /proc/self/maps) use only async-signal-safe calls, so they are written even
// when the crash happened inside malloc or while a lock was held. The
// symbolized backtrace follows; it needs libdw, which is not safe in a signal
// handler, so it runs under a watchdog: whatever happens, the process ends by
// its signal within kWatchdogSeconds and the system's own core handling runs.
class CrashDumpExceptionFilter {
public:
    static constexpr unsigned kWatchdogSeconds = 5;

    // Installed first thing in main: paths, the zone's offset, the unwinder
    // and the main thread's alternate signal stack are prepared here. Other
    // threads get their stack from SignalStack.
    static void Install();
    // The handler proper; returns 1 like an unhandled-exception filter.
    static long Handle(int signal, void* faultAddress);
};
