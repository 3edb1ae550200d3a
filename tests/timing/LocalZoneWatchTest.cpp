// A change of the system time zone, as timedatectl makes it (the zone link
// replaced), seen through a zone link of the test's own.
#include "timing/LocalZoneWatch.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <ctime>

namespace {
class ZoneLink {
public:
    explicit ZoneLink(const char* zone) : m_path(m_dir.path() + "/localtime") {
        PointTo(zone);
        m_savedTz = qgetenv("TZ");
        qputenv("TZ", ":" + m_path.toLocal8Bit());
        tzset();
    }
    ~ZoneLink() {
        qputenv("TZ", m_savedTz);
        tzset();
    }

    // Replaces the link in one step, as timedatectl does.
    void PointTo(const char* zone) {
        const QString fresh = m_path + ".new";
        QFile::remove(fresh);
        ASSERT_TRUE(QFile::link(QString("/usr/share/zoneinfo/") + zone, fresh));
        ASSERT_EQ(std::rename(fresh.toLocal8Bit().constData(), m_path.toLocal8Bit().constData()), 0);
    }
    const QString& path() const { return m_path; }

private:
    QTemporaryDir m_dir;
    QString m_path;
    QByteArray m_savedTz;
};

int OffsetOnTheTenthOfMarch() {
    return QDateTime(QDate(2026, 3, 10), QTime(12, 0)).offsetFromUtc();
}

TEST(LocalZoneWatch, NoticesAReplacedZoneOnceAndReadsIt) {
    ZoneLink link("UTC");
    LocalZoneWatch watch(link.path());
    EXPECT_EQ(OffsetOnTheTenthOfMarch(), 0);
    EXPECT_FALSE(watch.CheckChanged());
    link.PointTo("Europe/Berlin");
    EXPECT_TRUE(watch.CheckChanged());
    EXPECT_FALSE(watch.CheckChanged());
    EXPECT_EQ(OffsetOnTheTenthOfMarch(), 3600);
    link.PointTo("Asia/Tokyo");
    EXPECT_TRUE(watch.CheckChanged());
    EXPECT_EQ(OffsetOnTheTenthOfMarch(), 9 * 3600);
}
} // namespace
