#pragma once

#include <QString>

#include <cstring>

// A date-time text kept in the room of one QString: a text of the usual form
// "yyyy-MM-dd hh:mm:ss" as its fourteen digits, any other text (null, empty,
// another form) as the string itself. Every plan keeps its start time, which
// as a string takes a block of 80 bytes on the heap; a packed text is made
// again, exactly, whenever it is read.
//
// Relies on a QString being one pointer to data aligned to at least two
// bytes, as in every Qt 5 build: a set lowest bit marks the digits.
class PackedDateTimeText {
public:
    PackedDateTimeText();
    explicit PackedDateTimeText(const QString& text);
    PackedDateTimeText(const PackedDateTimeText& other);
    PackedDateTimeText& operator=(const PackedDateTimeText& other);
    ~PackedDateTimeText();

    QString text() const;
    bool operator==(const PackedDateTimeText& other) const;

private:
    quint64 Bits() const {
        quint64 bits = 0;
        std::memcpy(&bits, m_storage, sizeof bits);
        return bits;
    }
    bool IsPacked() const { return (Bits() & 1U) != 0; }
    const QString& String() const;
    // Fills the storage, which holds nothing.
    void Take(const QString& text);
    void CopyFrom(const PackedDateTimeText& other);
    void Release();

    alignas(QString) unsigned char m_storage[sizeof(QString)];
};
