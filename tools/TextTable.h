#pragma once

#include <QString>
#include <QStringList>

#include <vector>

// Rows in columns aligned on the widest cell, two blanks apart; the last
// column is not padded.
class TextTable {
public:
    static QString Format(const std::vector<QStringList>& rows);
};
