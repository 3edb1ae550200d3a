#pragma once

#include <QByteArray>
#include <QString>

// Appends values to a byte array exactly as a big-endian QDataStream at the
// wire's stream version writes them. A QDataStream over a byte array makes a
// QBuffer, a QObject, and sends every value through a QIODevice call; for a
// command of a dozen small fields that machinery cost more than the bytes.
//
// Only the types the commands carry are accepted: any other would be written
// by QDataStream with its own width, so it does not compile here.
class WireWriter {
public:
    // Appends to `bytes`.
    explicit WireWriter(QByteArray& bytes) : m_bytes(&bytes) {}
    // Writes nothing and only counts, so that the array can be made its
    // exact size before the writing pass.
    WireWriter() = default;

    WireWriter& operator<<(quint64 value);
    WireWriter& operator<<(const QString& text);
    WireWriter& operator<<(const QByteArray& bytes);
    template <typename T> WireWriter& operator<<(const T&) = delete;
    // Bytes already in wire form, such as a QDataStream's.
    void AppendRaw(const QByteArray& bytes);

    // The bytes written or counted so far.
    qint64 size() const { return m_size; }

    // Makes `bytes` what `write` writes to a writer: counted first, so that
    // the array is made its exact size once and has no spare room while it
    // waits in the link's queue.
    template <typename Write> static void Fill(QByteArray& bytes, Write write) {
        WireWriter counter;
        write(counter);
        bytes.clear();
        bytes.reserve(static_cast<int>(counter.size()));
        WireWriter out(bytes);
        write(out);
    }

private:
    void Append(const char* data, int length);
    void AppendLength(quint32 length);

    QByteArray* m_bytes = nullptr;
    qint64 m_size = 0;
};
