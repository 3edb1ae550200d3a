#include "BoundedRead.h"

#include <QIODevice>
#include <QtEndian>

namespace {
constexpr qint64 kPrefixSize = 4;
// The prefix of a null text or byte array.
constexpr quint32 kNull = 0xffffffff;
} // namespace

bool BoundedRead::Fits(QDataStream& in) {
    QIODevice* device = in.device();
    if (device == nullptr) {
        return true;
    }
    const QByteArray prefix = device->peek(kPrefixSize);
    if (prefix.size() < kPrefixSize) {
        return true;
    }
    const quint32 length = qFromBigEndian<quint32>(prefix.constData());
    return length == kNull || length <= device->bytesAvailable() - kPrefixSize;
}

// A stream that has already failed would go on reading lengths out of
// whatever follows, so nothing more is read from it.
QDataStream& operator>>(QDataStream& in, BoundedRead field) {
    if (in.status() != QDataStream::Ok) {
        return in;
    }
    if (!BoundedRead::Fits(in)) {
        in.setStatus(QDataStream::ReadPastEnd);
        return in;
    }
    if (field.m_text != nullptr) {
        in >> *field.m_text;
    } else {
        in >> *field.m_bytes;
    }
    return in;
}
