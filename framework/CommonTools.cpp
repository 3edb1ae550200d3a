#include "CommonTools.h"

#include <QFileInfo>

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

bool CommonTools::IsFileExist(const QString& path) {
    return !path.isEmpty() && QFileInfo(path).isFile();
}
