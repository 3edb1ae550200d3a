#pragma once

#include <QDateTime>
#include <QProcessEnvironment>
#include <QTemporaryDir>

// The wall clock of a child process moved by Debian's libfaketime while its
// monotonic clock runs on: what a clock step or a suspend looks like to the
// process. The offset lives in a file the library reads again every second,
// so the clock can be moved while the process runs.
class FakeWallClock {
public:
    // The child's clock reads `now` at the moment of construction.
    explicit FakeWallClock(const QDateTime& now);

    // Why the library cannot be used here; empty when it can.
    static QString Unavailable();
    // Adds what the child needs to its environment.
    void Apply(QProcessEnvironment& environment) const;
    void MoveBy(qint64 secs);
    // What the child's clock reads now.
    QDateTime Now() const;

private:
    void Write() const;

    QTemporaryDir m_dir;
    qint64 m_offsetSecs = 0;
};
