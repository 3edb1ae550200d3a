#include "FrameReader.h"

#include "WireFormat.h"

#include <QtEndian>

namespace {
constexpr int kHeaderSize = 4;
}

void FrameReader::Append(const QByteArray& bytes) {
    if (!m_failed) {
        m_buffer.append(bytes);
    }
}

bool FrameReader::Next(QByteArray& payload) {
    if (m_failed || m_buffer.size() < kHeaderSize) {
        return false;
    }
    const quint32 length = qFromBigEndian<quint32>(m_buffer.constData());
    if (length > WireFormat::kMaxFramePayload) {
        m_failed = true;
        m_refusedLength = length;
        m_buffer.clear();
        return false;
    }
    if (static_cast<quint32>(m_buffer.size() - kHeaderSize) < length) {
        return false;
    }
    payload = m_buffer.mid(kHeaderSize, static_cast<int>(length));
    m_buffer.remove(0, kHeaderSize + static_cast<int>(length));
    return true;
}

QByteArray FrameReader::Frame(const QByteArray& payload) {
    QByteArray frame(kHeaderSize, '\0');
    qToBigEndian<quint32>(static_cast<quint32>(payload.size()), frame.data());
    frame.append(payload);
    return frame;
}

QByteArray FrameReader::PayloadOf(const QByteArray& frame) {
    return frame.mid(kHeaderSize);
}
