#include "CommonTools.h"

void CommonTools::StringToList(const QString& text, QList<quint64>& values) {
    values.clear();
    const QStringList tokens = text.split(',', Qt::SkipEmptyParts);
    for (const QString& token : tokens) {
        const QString trimmed = token.trimmed();
        if (trimmed.isEmpty() || !trimmed.front().isDigit()) {
            continue;
        }
        bool ok = false;
        const quint64 value = trimmed.toULongLong(&ok, 10);
        if (ok) {
            values.append(value);
        }
    }
}
