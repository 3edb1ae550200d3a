#pragma once

#include <QStringList>

// "orvelctl status": the live schedule from the service's run state, also
// while the service is down (then the last state it wrote).
class StatusCommand {
public:
    static int Run(const QStringList& arguments);
    static QString Help();
};
