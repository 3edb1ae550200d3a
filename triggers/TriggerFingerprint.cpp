#include "TriggerFingerprint.h"

#include "framework/TriggerAttribute.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QtEndian>

namespace {
// The definition's fields are laid out as QDataStream (version 5.6, big
// endian) writes them in TriggerAttribute::Write, byte for byte: the digests
// kept in run state files were taken of that form. Written here directly, as
// a stream and its buffer cost more than the digest at a million plans.
void PutNumber(QByteArray& bytes, quint64 value) {
    char big[sizeof value];
    qToBigEndian(value, big);
    bytes.append(big, sizeof big);
}

void PutText(QByteArray& bytes, const QString& text) {
    char length[sizeof(quint32)];
    qToBigEndian(text.isNull() ? quint32(0xffffffff) : static_cast<quint32>(text.size() * 2), length);
    bytes.append(length, sizeof length);
    for (const QChar c : text) {
        char unit[sizeof(quint16)];
        qToBigEndian(c.unicode(), unit);
        bytes.append(unit, sizeof unit);
    }
}
} // namespace

// The stream form covers every field and is fixed by its stream version, so
// the digest stays the same from one build of the service to the next, which
// qHash, seeded per process, would not.
quint64 TriggerFingerprint::Of(const TriggerAttribute& attribute) {
    QByteArray bytes;
    bytes.reserve(256);
    PutNumber(bytes, attribute.getTriggerType());
    PutText(bytes, attribute.getStartTime());
    PutText(bytes, attribute.getEndTime());
    PutNumber(bytes, attribute.getInterval());
    PutNumber(bytes, attribute.getDuration());
    PutText(bytes, attribute.getWeekDays());
    PutText(bytes, attribute.getWhichMoths());
    PutText(bytes, attribute.getMonthDays());
    PutNumber(bytes, attribute.getDayLastFlag());
    PutNumber(bytes, attribute.getTriggerEndFlag());
    const QByteArray digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1);
    const quint64 value = qFromBigEndian<quint64>(digest.constData()) >> 1;
    return value != 0 ? value : 1;
}
