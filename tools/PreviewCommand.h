#pragma once

#include <QStringList>

// "orvelctl preview": a trigger's next start times, computed by the service's
// own calendar computation.
class PreviewCommand {
public:
    static int Run(const QStringList& arguments);
    static QString Help();
};
