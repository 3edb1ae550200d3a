#pragma once

#include <QByteArray>

// Cuts a byte stream into frames: a 32-bit big-endian payload length, then the
// payload. A declared length above the limit poisons the reader; the caller
// then closes the connection.
class FrameReader {
public:
    void Append(const QByteArray& bytes);
    // Takes the next complete payload; false when none is complete yet.
    bool Next(QByteArray& payload);
    bool Failed() const { return m_failed; }
    // Bytes of a frame that has begun but is not complete.
    bool HasPartial() const { return m_buffer.size() > m_taken; }
    quint32 RefusedLength() const { return m_refusedLength; }

    static QByteArray Frame(const QByteArray& payload);
    // The payload of a frame that Frame made.
    static QByteArray PayloadOf(const QByteArray& frame);

private:
    void ReleaseIfTaken();

    QByteArray m_buffer;
    // Bytes at the front of m_buffer whose frames were taken.
    int m_taken = 0;
    bool m_failed = false;
    quint32 m_refusedLength = 0;
};
