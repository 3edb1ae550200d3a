#include "WireWriter.h"

#include <QtEndian>

namespace {
// QDataStream's mark for a null string or byte array, in place of a length.
constexpr quint32 kNullMark = 0xffffffffU;
} // namespace

WireWriter& WireWriter::operator<<(quint64 value) {
    const quint64 wire = qToBigEndian(value);
    m_bytes.append(reinterpret_cast<const char*>(&wire), sizeof(wire));
    return *this;
}

WireWriter& WireWriter::operator<<(const QString& text) {
    if (text.isNull()) {
        AppendLength(kNullMark);
        return *this;
    }
    const int units = text.size();
    AppendLength(static_cast<quint32>(units) * 2);
    const int at = m_bytes.size();
    m_bytes.resize(at + units * 2);
    char* out = m_bytes.data() + at;
    const ushort* in = text.utf16();
    for (int i = 0; i < units; ++i) {
        qToBigEndian(in[i], out + 2 * i);
    }
    return *this;
}

WireWriter& WireWriter::operator<<(const QByteArray& bytes) {
    if (bytes.isNull()) {
        AppendLength(kNullMark);
        return *this;
    }
    AppendLength(static_cast<quint32>(bytes.size()));
    m_bytes.append(bytes);
    return *this;
}

void WireWriter::AppendLength(quint32 length) {
    const quint32 wire = qToBigEndian(length);
    m_bytes.append(reinterpret_cast<const char*>(&wire), sizeof(wire));
}
