#include "LogText.h"

#include <limits>

namespace {
const QChar kEllipsis(0x2026);

// Line and paragraph separators end a line in many viewers although they are
// not control characters.
bool NeedsEscape(QChar c) {
    const ushort u = c.unicode();
    return u < 0x20 || (u >= 0x7f && u <= 0x9f) || u == 0x2028 || u == 0x2029;
}

QString Escape(QChar c) {
    switch (c.unicode()) {
    case '\n':
        return QStringLiteral("\\n");
    case '\r':
        return QStringLiteral("\\r");
    case '\t':
        return QStringLiteral("\\t");
    default:
        break;
    }
    if (c.unicode() <= 0xff) {
        return QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QChar('0'));
    }
    return QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QChar('0'));
}

bool IsClean(const QString& text, int limit) {
    if (text.size() > limit) {
        return false;
    }
    for (QChar c : text) {
        if (NeedsEscape(c)) {
            return false;
        }
    }
    return true;
}

// Escapes into at most `limit` characters; an escape or a surrogate pair is
// never cut in two. `cut` tells whether anything was left out.
QString EscapeUpTo(const QString& text, int limit, bool& cut) {
    QString out;
    out.reserve(qMin(text.size(), limit) + 8);
    cut = false;
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        const bool pair = c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const QString piece = NeedsEscape(c) ? Escape(c) : (pair ? text.mid(i, 2) : QString(c));
        if (out.size() + piece.size() > limit) {
            cut = true;
            return out;
        }
        out += piece;
        i += pair ? 1 : 0;
    }
    return out;
}
} // namespace

QString LogText::Outside(const QString& text) {
    if (IsClean(text, kMaxChars)) {
        return text;
    }
    bool cut = false;
    QString out = EscapeUpTo(text, kMaxChars, cut);
    if (cut) {
        out += kEllipsis;
    }
    return out;
}

QString LogText::OneLine(const QString& line) {
    if (IsClean(line, line.size())) {
        return line;
    }
    bool cut = false;
    return EscapeUpTo(line, std::numeric_limits<int>::max(), cut);
}
