// A computed next start is kept as its instant and offset; its text is made
// when read. A text is kept only where it says something the instant does not.
#include "support/TriggerBuilder.h"

#include "triggers/TriggerObject.h"

#include <QDateTime>

#include <gtest/gtest.h>

namespace {
qint64 Utc(int month, int day, int hour, int minute) {
    return QDateTime(QDate(2026, month, day), QTime(hour, minute), Qt::UTC).toMSecsSinceEpoch();
}

struct NextStartCase {
    const char* name;
    const char* text; // nullptr: set from the instant alone
    qint64 msecs;
    int offsetSecs;
    const char* read; // what getNextStartTime gives
    bool textKept;
};

// Berlin's offsets, written out: the object never asks the zone.
const NextStartCase kCases[] = {
    {"computed", nullptr, Utc(3, 28, 23, 30), 3600, "2026-03-29 00:30:00", false},
    {"computed after the gap", nullptr, Utc(3, 29, 1, 30), 7200, "2026-03-29 03:30:00", false},
    {"first reading of a repeated hour", nullptr, Utc(10, 25, 0, 30), 7200, "2026-10-25 02:30:00", false},
    {"second reading of a repeated hour", nullptr, Utc(10, 25, 1, 30), 3600, "2026-10-25 02:30:00", false},
    {"text without an instant", "2026-03-29 02:30:00", 0, 0, "2026-03-29 02:30:00", true},
    {"no start", "", 0, 0, "", true},
    {"stored text that matches its instant", "2026-03-29 00:30:00", Utc(3, 28, 23, 30), 3600,
     "2026-03-29 00:30:00", false},
    {"stored text unlike its instant", "2026-03-29 05:00:00", Utc(3, 28, 23, 30), 3600, "2026-03-29 05:00:00",
     true},
    {"empty stored text beside an instant", "", Utc(3, 28, 23, 30), 3600, "", true},
};

TEST(TriggerObject, NextStartReadsAsItsInstantOrItsText) {
    for (const NextStartCase& c : kCases) {
        TriggerObject object;
        object.setNextStartTime("2020-01-01 00:00:00");
        if (c.text == nullptr) {
            object.setNextStart(c.msecs, c.offsetSecs);
        } else {
            object.setNextStart(QString(c.text), c.msecs, c.offsetSecs);
        }
        EXPECT_EQ(object.getNextStartTime(), c.read) << c.name;
        EXPECT_EQ(object.getNextStartMSecs(), c.msecs) << c.name;
        EXPECT_EQ(!object.getNextStartText().isEmpty(), c.textKept && *c.read != '\0') << c.name;

        // What goes over the wire is the text, whichever way it is kept.
        EXPECT_EQ(ThroughTheWire(object).getNextStartTime(), c.read) << c.name;
    }
}
} // namespace
