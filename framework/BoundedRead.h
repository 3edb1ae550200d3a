#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QString>

// Reads one length-prefixed text or byte array of the wire format only when
// the stream still holds as many bytes as the prefix claims. QDataStream
// itself reserves up to 2 MiB for a claimed length before it finds the bytes
// missing, so a 20-byte frame could cost a 2 MiB allocation per field; this
// fails it at once instead, with the stream's ReadPastEnd status.
//
//     in >> m_triggerType >> BoundedRead(m_startTime);
class BoundedRead {
public:
    explicit BoundedRead(QString& text) : m_text(&text) {}
    explicit BoundedRead(QByteArray& bytes) : m_bytes(&bytes) {}

    friend QDataStream& operator>>(QDataStream& in, BoundedRead field);

private:
    static bool Fits(QDataStream& in);

    QString* m_text = nullptr;
    QByteArray* m_bytes = nullptr;
};
