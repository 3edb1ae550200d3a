#pragma once

#include <cstddef>

// An alternate signal stack for the thread that constructs it, so that a
// crash report can still be written when that thread has overflowed its own
// stack. It is released when the object is destroyed, on the same thread.
class SignalStack {
public:
    // Symbolizing a backtrace with libdw needs far more stack than a signal
    // handler usually gets; the pages are only reserved, not committed.
    static constexpr std::size_t kSize = 4 * 1024 * 1024;

    SignalStack();
    ~SignalStack();
    SignalStack(const SignalStack&) = delete;
    SignalStack& operator=(const SignalStack&) = delete;

    // One stack per thread for the rest of the thread's life; repeated calls
    // on the same thread do nothing.
    static void EnsureForCurrentThread();

private:
    void* m_memory = nullptr;
};
