#include "TriggerFingerprint.h"

#include "framework/TriggerAttribute.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QtEndian>

namespace {
// Room for the usual definition (about 300 bytes), so that the stream does not
// grow the array field by field; small enough for glibc's per-thread cache of
// freed blocks, which serves blocks of up to about a kilobyte.
constexpr int kUsualBytes = 512;
} // namespace

// The stream form covers every field and is fixed by its stream version, so
// the digest stays the same from one build of the service to the next, which
// qHash, seeded per process, would not.
quint64 TriggerFingerprint::Of(const TriggerAttribute& attribute) {
    QByteArray bytes;
    bytes.reserve(kUsualBytes);
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_6);
    attribute.Write(out);
    const QByteArray digest = QCryptographicHash::hash(bytes, QCryptographicHash::Sha1);
    const quint64 value = qFromBigEndian<quint64>(digest.constData()) >> 1;
    return value != 0 ? value : 1;
}
