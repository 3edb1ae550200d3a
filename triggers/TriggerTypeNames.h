#pragma once

#include <QMap>
#include <QString>

// The words for trigger types, as orvelctl and the metrics show them.
class TriggerTypeNames {
public:
    // "once", "daily", ..., "logon", ...; "type N" for any other number.
    static QString Name(quint64 type);
    // The event triggers by word.
    static const QMap<QString, quint64>& Events();
};
