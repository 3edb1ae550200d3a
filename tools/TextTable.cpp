#include "TextTable.h"

QString TextTable::Format(const std::vector<QStringList>& rows) {
    std::vector<int> widths;
    for (const QStringList& row : rows) {
        widths.resize(qMax(widths.size(), static_cast<size_t>(row.size())));
        for (int i = 0; i < row.size(); ++i) {
            widths[static_cast<size_t>(i)] = qMax(widths[static_cast<size_t>(i)], row.at(i).size());
        }
    }
    QString text;
    text.reserve(static_cast<int>(rows.size()) * 120);
    for (const QStringList& row : rows) {
        for (int i = 0; i + 1 < row.size(); ++i) {
            text += row.at(i).leftJustified(widths[static_cast<size_t>(i)] + 2);
        }
        text += row.value(row.size() - 1) + '\n';
    }
    return text;
}
