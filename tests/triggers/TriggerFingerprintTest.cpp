// The fingerprint is kept in run state files: a start-up after an upgrade
// takes a plan's progress back only when the digest of its definition is the
// one the file holds, so its value may never change.
#include "triggers/TriggerFingerprint.h"

#include "framework/TriggerAttribute.h"
#include "support/TriggerBuilder.h"

#include <gtest/gtest.h>

TEST(TriggerFingerprint, KeepsTheValueFilesHold) {
    const TriggerAttribute daily = MakeAttribute({2, "2026-01-01 10:00:00", "", 0, 0, "", "", "", 0});
    EXPECT_EQ(TriggerFingerprint::Of(daily), 3049081398187627213ULL);
    EXPECT_NE(TriggerFingerprint::Of(daily), TriggerFingerprint::Of(MakeAttribute({})));
}
