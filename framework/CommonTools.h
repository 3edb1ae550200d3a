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
    // Each token between commas, without the blanks around it (so possibly
    // empty), as the characters from `begin` to `end`.
    template <typename Visit> static void ForEachListToken(const QString& text, Visit visit);
    // A token as ForEachListToken hands it; false when it is not an unsigned
    // decimal value that fits in 64 bits.
    static bool ReadValue(const QChar* begin, const QChar* end, quint64& value);
};

template <typename Visit> void CommonTools::ForEachListToken(const QString& text, Visit visit) {
    const QChar* const end = text.constData() + text.size();
    for (const QChar* begin = text.constData(); begin <= end;) {
        const QChar* comma = begin;
        while (comma < end && *comma != QLatin1Char(',')) {
            ++comma;
        }
        const QChar* first = begin;
        const QChar* last = comma;
        while (first < last && first->isSpace()) {
            ++first;
        }
        while (last > first && (last - 1)->isSpace()) {
            --last;
        }
        visit(first, last);
        begin = comma + 1;
    }
}

template <typename Visit> void CommonTools::ForEachListValue(const QString& text, Visit visit) {
    ForEachListToken(text, [&visit](const QChar* begin, const QChar* end) {
        quint64 value = 0;
        if (ReadValue(begin, end, value)) {
            visit(value);
        }
    });
}
