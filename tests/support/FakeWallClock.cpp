#include "FakeWallClock.h"

#include "framework/Clock.h"

#include <QFile>

namespace {
const QString kLibrary = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1";
}

FakeWallClock::FakeWallClock(const QDateTime& now) {
    m_offsetSecs = (now.toMSecsSinceEpoch() - Clock::nowMSecsSinceEpoch()) / 1000;
    Write();
}

QString FakeWallClock::Unavailable() {
#if defined(__SANITIZE_THREAD__)
    return "a preloaded clock library cannot come before the thread sanitizer's runtime";
#else
    return QFile::exists(kLibrary) ? QString() : QString("libfaketime is not installed");
#endif
}

void FakeWallClock::Apply(QProcessEnvironment& environment) const {
    environment.insert("LD_PRELOAD", kLibrary);
    environment.insert("FAKETIME_TIMESTAMP_FILE", m_dir.filePath("offset"));
    environment.insert("FAKETIME_DONT_FAKE_MONOTONIC", "1");
    environment.insert("FAKETIME_CACHE_DURATION", "1");
#if defined(__SANITIZE_ADDRESS__)
    // The clock library is preloaded ahead of the address sanitizer's runtime,
    // which refuses to start that way unless told the order is meant.
    const QString asan = environment.value("ASAN_OPTIONS");
    environment.insert("ASAN_OPTIONS",
                       (asan.isEmpty() ? QString() : asan + ":") + "verify_asan_link_order=0");
#endif
}

void FakeWallClock::MoveBy(qint64 secs) {
    m_offsetSecs += secs;
    Write();
}

QDateTime FakeWallClock::Now() const {
    return Clock::now().addSecs(m_offsetSecs);
}

void FakeWallClock::Write() const {
    QFile file(m_dir.filePath("offset"));
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(QString("%1%2\n").arg(m_offsetSecs >= 0 ? "+" : "").arg(m_offsetSecs).toUtf8());
}
