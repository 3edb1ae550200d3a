#include "ServiceThread.h"

#include "SignalStack.h"

void ServiceThread::run() {
    SignalStack stack;
    QThread::run();
}
