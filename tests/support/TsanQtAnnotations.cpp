// Linked into the thread-sanitizer build only. Qt's QMutex and QWaitCondition
// live in the uninstrumented Qt library and block on futexes, which the
// sanitizer cannot see, so every lock would look like no lock at all. These
// definitions take the place of Qt's exported ones for calls from our code,
// forward to them and tell the sanitizer what they did.
#include "TsanEventApplication.h"
#include <QCoreApplication>

#include <QMutex>
#include <QWaitCondition>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {
template <typename Function> Function Real(const char* symbol) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbol));
}
} // namespace

void QMutex::lock() {
    static const auto real = Real<void (*)(QMutex*)>("_ZN6QMutex4lockEv");
    real(this);
    __tsan_acquire(this);
}

bool QMutex::tryLock(int timeout) {
    static const auto real = Real<bool (*)(QMutex*, int)>("_ZN6QMutex7tryLockEi");
    const bool locked = real(this, timeout);
    if (locked) {
        __tsan_acquire(this);
    }
    return locked;
}

void QMutex::unlock() noexcept {
    static const auto real = Real<void (*)(QMutex*)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    real(this);
}

bool QWaitCondition::wait(QMutex* mutex, unsigned long time) {
    static const auto real =
        Real<bool (*)(QWaitCondition*, QMutex*, unsigned long)>("_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_release(mutex);
    const bool woken = real(this, mutex, time);
    __tsan_acquire(mutex);
    return woken;
}

bool QWaitCondition::wait(QMutex* mutex, QDeadlineTimer deadline) {
    static const auto real = Real<bool (*)(QWaitCondition*, QMutex*, QDeadlineTimer)>(
        "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_release(mutex);
    const bool woken = real(this, mutex, deadline);
    __tsan_acquire(mutex);
    return woken;
}

// Qt's event queue is another lock the sanitizer cannot see: an event is
// posted on one thread and delivered on another, inside Qt. Emitting a signal,
// invoking a method or deleting later from our code releases one common token,
// and the delivery of any event acquires it (TsanEventApplication::notify),
// which is the order the queue gives them.
char g_eventQueue;

void QMetaObject::activate(QObject* sender, const QMetaObject* meta, int index, void** arguments) {
    static const auto real = Real<void (*)(QObject*, const QMetaObject*, int, void**)>(
        "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv");
    __tsan_release(&g_eventQueue);
    real(sender, meta, index, arguments);
}

bool QMetaObject::invokeMethodImpl(QObject* object, QtPrivate::QSlotObjectBase* slot, Qt::ConnectionType type,
                                   void* ret) {
    static const auto real = Real<bool (*)(QObject*, QtPrivate::QSlotObjectBase*, Qt::ConnectionType, void*)>(
        "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    __tsan_release(&g_eventQueue);
    return real(object, slot, type, ret);
}

bool QMetaObject::invokeMethod(QObject* object, const char* member, Qt::ConnectionType type,
                               QGenericReturnArgument ret, QGenericArgument a0, QGenericArgument a1,
                               QGenericArgument a2, QGenericArgument a3, QGenericArgument a4,
                               QGenericArgument a5, QGenericArgument a6, QGenericArgument a7,
                               QGenericArgument a8, QGenericArgument a9) {
    using Invoke =
        bool (*)(QObject*, const char*, Qt::ConnectionType, QGenericReturnArgument, QGenericArgument,
                 QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
                 QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument);
    static const auto real =
        Real<Invoke>("_ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22"
                     "QGenericReturnArgument16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_");
    __tsan_release(&g_eventQueue);
    return real(object, member, type, ret, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
}

void QObject::deleteLater() {
    static const auto real = Real<void (*)(QObject*)>("_ZN7QObject11deleteLaterEv");
    __tsan_release(&g_eventQueue);
    real(this);
}

bool TsanEventApplication::notify(QObject* receiver, QEvent* event) {
    __tsan_acquire(&g_eventQueue);
    return QCoreApplication::notify(receiver, event);
}
