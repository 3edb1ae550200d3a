#include "SignalStack.h"

#include <csignal>
#include <sys/mman.h>

SignalStack::SignalStack() {
    void* memory = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        return;
    }
    stack_t stack = {};
    stack.ss_sp = memory;
    stack.ss_size = kSize;
    if (::sigaltstack(&stack, nullptr) != 0) {
        ::munmap(memory, kSize);
        return;
    }
    m_memory = memory;
}

SignalStack::~SignalStack() {
    if (m_memory == nullptr) {
        return;
    }
    stack_t disable = {};
    disable.ss_flags = SS_DISABLE;
    ::sigaltstack(&disable, nullptr);
    ::munmap(m_memory, kSize);
}

void SignalStack::EnsureForCurrentThread() {
    thread_local SignalStack stack;
}
