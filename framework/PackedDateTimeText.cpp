#include "PackedDateTimeText.h"

#include <new>

static_assert(sizeof(QString) == sizeof(quint64), "a QString is one pointer");

namespace {
// "yyyy-MM-dd hh:mm:ss": the separators' places and characters; every other
// place holds a digit.
constexpr int kLength = 19;
constexpr char kShape[] = "0000-00-00 00:00:00";

bool Pack(const QString& text, quint64& bits) {
    if (text.size() != kLength) {
        return false;
    }
    quint64 digits = 0;
    for (int i = 0; i < kLength; ++i) {
        const ushort c = text.at(i).unicode();
        if (kShape[i] != '0') {
            if (c != static_cast<ushort>(kShape[i])) {
                return false;
            }
            continue;
        }
        if (c < '0' || c > '9') {
            return false;
        }
        digits = digits * 10 + (c - '0');
    }
    bits = (digits << 1) | 1U;
    return true;
}

QString Unpack(quint64 bits) {
    quint64 digits = bits >> 1;
    QString text(kLength, Qt::Uninitialized);
    QChar* out = text.data();
    for (int i = kLength - 1; i >= 0; --i) {
        if (kShape[i] != '0') {
            out[i] = QLatin1Char(kShape[i]);
            continue;
        }
        out[i] = QLatin1Char(static_cast<char>('0' + digits % 10));
        digits /= 10;
    }
    return text;
}
} // namespace

PackedDateTimeText::PackedDateTimeText() {
    new (m_storage) QString();
}

PackedDateTimeText::PackedDateTimeText(const QString& text) {
    Take(text);
}

PackedDateTimeText::PackedDateTimeText(const PackedDateTimeText& other) {
    CopyFrom(other);
}

PackedDateTimeText& PackedDateTimeText::operator=(const PackedDateTimeText& other) {
    if (this != &other) {
        Release();
        CopyFrom(other);
    }
    return *this;
}

PackedDateTimeText::~PackedDateTimeText() {
    Release();
}

QString PackedDateTimeText::text() const {
    return IsPacked() ? Unpack(Bits()) : String();
}

// A text of the usual form is always packed, so a packed text and a string
// never hold the same text.
bool PackedDateTimeText::operator==(const PackedDateTimeText& other) const {
    if (IsPacked() || other.IsPacked()) {
        return Bits() == other.Bits();
    }
    return String() == other.String();
}

const QString& PackedDateTimeText::String() const {
    return *std::launder(reinterpret_cast<const QString*>(m_storage));
}

void PackedDateTimeText::Take(const QString& text) {
    quint64 bits = 0;
    if (Pack(text, bits)) {
        std::memcpy(m_storage, &bits, sizeof bits);
        return;
    }
    new (m_storage) QString(text);
}

void PackedDateTimeText::CopyFrom(const PackedDateTimeText& other) {
    if (other.IsPacked()) {
        std::memcpy(m_storage, other.m_storage, sizeof m_storage);
        return;
    }
    new (m_storage) QString(other.String());
}

void PackedDateTimeText::Release() {
    if (!IsPacked()) {
        String().~QString();
    }
}
