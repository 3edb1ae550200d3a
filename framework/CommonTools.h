#pragma once

#include <QList>
#include <QString>

class CommonTools {
public:
    // Comma-separated unsigned decimal values, blanks around them allowed;
    // tokens that are not such numbers are skipped.
    static void StringToList(const QString& text, QList<quint64>& values);
    // The same values, handed to `visit` one by one without a list: a
    // calendar rule reads three lists for every plan it is made for.
    template <typename Visit> static void ForEachListValue(const QString& text, Visit visit);

private:
    // One token between commas; false when it is not an unsigned decimal
    // value that fits in 64 bits.
    static bool ReadValue(const QChar* begin, const QChar* end, quint64& value);
};

template <typename Visit> void CommonTools::ForEachListValue(const QString& text, Visit visit) {
    const QChar* const data = text.constData();
    const QChar* const end = data + text.size();
    for (const QChar* begin = data; begin <= end;) {
        const QChar* comma = begin;
        while (comma < end && *comma != QLatin1Char(',')) {
            ++comma;
        }
        quint64 value = 0;
        if (ReadValue(begin, comma, value)) {
            visit(value);
        }
        begin = comma + 1;
    }
}
