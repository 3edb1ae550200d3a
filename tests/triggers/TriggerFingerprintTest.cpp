// The fingerprint is kept in run state files: a start-up after an upgrade
// takes a plan's progress back only when the digest of its definition is the
// one the file holds, so its value may never change.
#include "triggers/TriggerFingerprint.h"

#include "framework/TriggerAttribute.h"
#include "support/TriggerBuilder.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QtEndian>

#include <gtest/gtest.h>

#include <limits>

namespace {
// The form files were written from: the definition as a version 5.6 stream.
quint64 StreamDigest(const TriggerAttribute& attribute) {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_6);
    attribute.Write(out);
    const QByteArray digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1);
    const quint64 value = qFromBigEndian<quint64>(digest.constData()) >> 1;
    return value != 0 ? value : 1;
}

TriggerAttribute WithNonAsciiText() {
    TriggerAttribute attribute = MakeAttribute({3, "2026-03-29 02:30:00", "", 0, 0, "1,7", "", "", 0});
    attribute.setMonthDays(QString::fromUtf8("1,15,\xc3\xbc,\xf0\x9f\x95\x91"));
    return attribute;
}

TriggerAttribute WithLargestNumbers() {
    TriggerAttribute attribute = MakeAttribute({std::numeric_limits<quint64>::max(), "x", "y",
                                                std::numeric_limits<quint64>::max(), 1, "", "", "", 1});
    attribute.setTriggerEndFlag(std::numeric_limits<quint64>::max());
    return attribute;
}
} // namespace

TEST(TriggerFingerprint, IsTheDigestOfTheStreamForm) {
    const TriggerAttribute cases[] = {
        TriggerAttribute(), // every text null
        MakeAttribute({}),  // every text empty
        MakeAttribute({2, "2026-01-01 10:00:00", "2027-01-01 00:00:00", 600, 3600, "1,3", "6,12", "1,15", 1}),
        WithNonAsciiText(),
        WithLargestNumbers(),
    };
    for (const TriggerAttribute& attribute : cases) {
        EXPECT_EQ(TriggerFingerprint::Of(attribute), StreamDigest(attribute))
            << attribute.getStartTime().toStdString();
    }
}

TEST(TriggerFingerprint, KeepsTheValueFilesHold) {
    const TriggerAttribute daily = MakeAttribute({2, "2026-01-01 10:00:00", "", 0, 0, "", "", "", 0});
    EXPECT_EQ(TriggerFingerprint::Of(daily), 3049081398187627213ULL);
    EXPECT_NE(TriggerFingerprint::Of(daily), TriggerFingerprint::Of(MakeAttribute({})));
}
