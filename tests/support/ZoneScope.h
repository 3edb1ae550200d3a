#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <ctime>

// Puts the process in a time zone for the lifetime of a test row, so that a
// row never depends on the zone the test binary was started in.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone) : m_saved(qgetenv("TZ")), m_wasSet(qEnvironmentVariableIsSet("TZ")) {
        qputenv("TZ", zone);
        tzset();
    }
    ~ZoneScope() {
        if (m_wasSet) {
            qputenv("TZ", m_saved);
        } else {
            qunsetenv("TZ");
        }
        tzset();
    }
    ZoneScope(const ZoneScope&) = delete;
    ZoneScope& operator=(const ZoneScope&) = delete;

private:
    QByteArray m_saved;
    bool m_wasSet;
};
