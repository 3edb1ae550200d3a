#include "FrameReader.h"

#include "WireFormat.h"

#include <QtEndian>

namespace {
constexpr int kHeaderSize = 4;
}

// The frames already taken leave the buffer here, once per read from the
// socket: removing each from the front as it is taken would move the rest of
// a burst of a hundred thousand answers once per answer.
void FrameReader::Append(const QByteArray& bytes) {
    if (m_failed) {
        return;
    }
    m_buffer.remove(0, m_taken);
    m_taken = 0;
    m_buffer.append(bytes);
}

// A burst's buffer is let go once its last frame is taken: a QByteArray keeps
// its largest size, and a start-up's answers from the agent come in bursts of
// tens of megabytes.
void FrameReader::ReleaseIfTaken() {
    if (m_taken == m_buffer.size()) {
        m_buffer.clear();
        m_taken = 0;
    }
}

bool FrameReader::Next(QByteArray& payload) {
    if (m_failed || m_buffer.size() - m_taken < kHeaderSize) {
        return false;
    }
    const quint32 length = qFromBigEndian<quint32>(m_buffer.constData() + m_taken);
    if (length > WireFormat::kMaxFramePayload) {
        m_failed = true;
        m_refusedLength = length;
        m_buffer.clear();
        m_taken = 0;
        return false;
    }
    if (static_cast<quint32>(m_buffer.size() - m_taken - kHeaderSize) < length) {
        return false;
    }
    payload = m_buffer.mid(m_taken + kHeaderSize, static_cast<int>(length));
    m_taken += kHeaderSize + static_cast<int>(length);
    ReleaseIfTaken();
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
