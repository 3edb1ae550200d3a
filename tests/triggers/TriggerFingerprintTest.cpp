// The fingerprint is kept in run state files: a start-up after an upgrade
// takes a plan's progress back only when the digest of its definition is the
// one the file holds, so its value may never change.
#include "triggers/TriggerFingerprint.h"

#include "framework/TriggerAttribute.h"
#include "support/TriggerBuilder.h"
#include "triggers/FingerprintFill.h"
#include "triggers/TriggerObject.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

TEST(TriggerFingerprint, KeepsTheValueFilesHold) {
    const TriggerAttribute daily = MakeAttribute({2, "2026-01-01 10:00:00", "", 0, 0, "", "", "", 0});
    EXPECT_EQ(TriggerFingerprint::Of(daily), 3049081398187627213ULL);
    EXPECT_NE(TriggerFingerprint::Of(daily), TriggerFingerprint::Of(MakeAttribute({})));
}

// Enough objects for the fill's own thread; each gets its own definition's
// digest, and a fill started again first finishes the one under way.
TEST(FingerprintFill, GivesEachObjectItsOwnDigest) {
    std::vector<std::unique_ptr<TriggerObject>> kept;
    std::vector<TriggerObject*> objects;
    for (int i = 0; i < 5000; ++i) {
        kept.push_back(std::make_unique<TriggerObject>());
        kept.back()->setTriggerAttribute(
            MakeAttribute({2, "2026-01-01 10:00:00", "", static_cast<quint64>(i), 0, "", "", "", 0}));
        objects.push_back(kept.back().get());
    }
    FingerprintFill fill;
    fill.Start(objects);
    fill.Start(std::vector<TriggerObject*>(objects.begin(), objects.begin() + 10));
    fill.Wait();
    for (TriggerObject* object : objects) {
        ASSERT_EQ(object->getDefinitionFingerprint(),
                  TriggerFingerprint::Of(object->getObjectTriggerAttribute()));
    }
}
