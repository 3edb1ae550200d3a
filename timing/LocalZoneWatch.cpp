#include "LocalZoneWatch.h"

#include "framework/Clock.h"

#include <sys/stat.h>

LocalZoneWatch::LocalZoneWatch(QString path) : m_path(std::move(path)), m_seen(Read()) {}

// Both the link and what it names: replacing the link, or the file it names,
// changes the zone.
LocalZoneWatch::Identity LocalZoneWatch::Read() const {
    Identity identity{};
    const QByteArray path = m_path.toLocal8Bit();
    struct stat link {};
    if (lstat(path.constData(), &link) == 0) {
        identity[0] = static_cast<qint64>(link.st_dev);
        identity[1] = static_cast<qint64>(link.st_ino);
        identity[2] = link.st_mtim.tv_sec * 1000000000LL + link.st_mtim.tv_nsec;
    }
    struct stat target {};
    if (stat(path.constData(), &target) == 0) {
        identity[3] = static_cast<qint64>(target.st_dev);
        identity[4] = static_cast<qint64>(target.st_ino);
        identity[5] = target.st_mtim.tv_sec * 1000000000LL + target.st_mtim.tv_nsec;
    }
    return identity;
}

bool LocalZoneWatch::CheckChanged() {
    const Identity now = Read();
    if (now == m_seen) {
        return false;
    }
    m_seen = now;
    Clock::RereadLocalTimeZone();
    return true;
}
