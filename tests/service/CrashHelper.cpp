// Crashes on a worker thread of the service's kind, after installing the
// service's crash handler: "null" dereferences a null pointer, "overflow"
// recurses until its stack is gone.
#include "platform/ServiceThread.h"
#include "service/CrashDumpExceptionFilter.h"

#include <QCoreApplication>

#include <cstring>

namespace {
volatile int* volatile g_nothing = nullptr;
volatile bool g_forever = true;

// The undefined behaviour sanitizer would stop the store before it faults.
__attribute__((noinline, no_sanitize("undefined"))) void DereferenceNull() {
    *g_nothing = 1;
}

__attribute__((noinline)) int Recurse(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (!g_forever) {
        return frame[0];
    }
    return Recurse(depth + 1) + frame[0];
}
} // namespace

int main(int argc, char** argv) {
    CrashDumpExceptionFilter::Install();
    QCoreApplication app(argc, argv);
    const bool overflow = argc > 1 && std::strcmp(argv[1], "overflow") == 0;
    ServiceThread thread("crash-worker");
    QObject worker;
    worker.moveToThread(&thread);
    thread.start();
    QMetaObject::invokeMethod(
        &worker,
        [overflow] {
            if (overflow) {
                Recurse(0);
            } else {
                DereferenceNull();
            }
        },
        Qt::QueuedConnection);
    return app.exec();
}
