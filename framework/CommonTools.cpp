#include "CommonTools.h"

#include <limits>

void CommonTools::StringToList(const QString& text, QList<quint64>& values) {
    values.clear();
    ForEachListValue(text, [&values](quint64 value) { values.append(value); });
}

bool CommonTools::ReadValue(const QChar* begin, const QChar* end, quint64& value) {
    if (begin == end) {
        return false;
    }
    constexpr quint64 kMax = std::numeric_limits<quint64>::max();
    value = 0;
    for (const QChar* c = begin; c < end; ++c) {
        const ushort code = c->unicode();
        if (code < '0' || code > '9') {
            return false;
        }
        const quint64 digit = code - '0';
        if (value > (kMax - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    return true;
}
