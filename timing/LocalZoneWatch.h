#pragma once

#include <QString>

#include <array>

// Notices that the system time zone changed (its zone file replaced, as
// timedatectl does) at the cost of one stat() per check, where the C library
// would otherwise stat it on every local-time conversion. On a change it has
// the C library read the zone again.
class LocalZoneWatch {
public:
    static constexpr int kCheckIntervalMSecs = 60000;

    explicit LocalZoneWatch(QString path = QStringLiteral("/etc/localtime"));

    // True when the zone file is not the one seen at the last check.
    bool CheckChanged();

private:
    // Device, inode and modification time of the link and of what it names.
    using Identity = std::array<qint64, 6>;
    Identity Read() const;

    QString m_path;
    Identity m_seen;
};
