#pragma once

// Writes a crash report when the process dies of a fatal signal (SIGSEGV,
// SIGBUS, SIGFPE, SIGILL, SIGABRT) or std::terminate: dump/schedulerservice
// followed by the "yyyyMMddhhmmss" local time and ".dmp", beside the
// executable. The report holds the signal and faulting address, process and
// thread id, time, a symbolized backtrace of the crashing thread and
// /proc/self/maps. Afterwards the signal's default action runs, so the
// system's own core handling still sees the crash.
class CrashDumpExceptionFilter {
public:
    // Installed first thing in main; paths and the alternate signal stack are
    // prepared here, so that the handler has as little to do as possible.
    static void Install();
    // The handler proper; returns 1 like an unhandled-exception filter.
    static long Handle(int signal, void* faultAddress);
};
