#include "ServiceThread.h"

#include "SignalStack.h"

ServiceThread::ServiceThread(const QString& name, QObject* parent) : QThread(parent) {
    setObjectName(name);
}

void ServiceThread::run() {
    SignalStack stack;
    QThread::run();
}
