#pragma once

#include <QString>
#include <QStringList>

// orvelctl plans: the plan UUIDs of the plans database, one a line, for
// scripts and for completion.
class PlansCommand {
public:
    static QString Help();
    static int Run(const QStringList& arguments);
};
