#pragma once

#include <QString>
#include <QStringList>

// orvelctl history: the run history of data/state.db, newest first.
class HistoryCommand {
public:
    static QString Help();
    static int Run(const QStringList& arguments);
};
