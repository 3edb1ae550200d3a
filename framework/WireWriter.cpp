#include "WireWriter.h"

#include <QtEndian>

namespace {
// QDataStream's mark for a null string or byte array, in place of a length.
constexpr quint32 kNullMark = 0xffffffffU;
} // namespace

WireWriter& WireWriter::operator<<(quint64 value) {
    const quint64 wire = qToBigEndian(value);
    Append(reinterpret_cast<const char*>(&wire), sizeof(wire));
    return *this;
}

WireWriter& WireWriter::operator<<(const QString& text) {
    if (text.isNull()) {
        AppendLength(kNullMark);
        return *this;
    }
    const int units = text.size();
    AppendLength(static_cast<quint32>(units) * 2);
    m_size += units * 2;
    if (m_bytes == nullptr) {
        return *this;
    }
    const int at = m_bytes->size();
    m_bytes->resize(at + units * 2);
    char* out = m_bytes->data() + at;
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
    AppendRaw(bytes);
    return *this;
}

void WireWriter::AppendRaw(const QByteArray& bytes) {
    Append(bytes.constData(), bytes.size());
}

void WireWriter::Append(const char* data, int length) {
    m_size += length;
    if (m_bytes != nullptr) {
        m_bytes->append(data, length);
    }
}

void WireWriter::AppendLength(quint32 length) {
    const quint32 wire = qToBigEndian(length);
    Append(reinterpret_cast<const char*>(&wire), sizeof(wire));
}
