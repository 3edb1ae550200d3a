#pragma once

#include <QString>
#include <QStringList>

#include <ostream>

// Readable QString values in test failure messages.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* os) {
    *os << '{' << list.join(" | ").toStdString() << '}';
}
