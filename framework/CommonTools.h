#pragma once

#include <QList>
#include <QString>

class CommonTools {
public:
    // Comma-separated unsigned decimal values, blanks around them allowed;
    // tokens that are not such numbers are skipped.
    static void StringToList(const QString& text, QList<quint64>& values);
};
