#include "TriggerTypeNames.h"

#include "triggers/FireState.h"

QString TriggerTypeNames::Name(quint64 type) {
    static const QMap<quint64, QString> calendar = {{TriggerTypes::kOnce, "once"},
                                                    {TriggerTypes::kDaily, "daily"},
                                                    {TriggerTypes::kWeekly, "weekly"},
                                                    {TriggerTypes::kMonthly, "monthly"}};
    if (calendar.contains(type)) {
        return calendar.value(type);
    }
    const QString event = Events().key(type);
    return event.isEmpty() ? QString("type %1").arg(type) : event;
}

const QMap<QString, quint64>& TriggerTypeNames::Events() {
    static const QMap<QString, quint64> types = {{"logon", TriggerTypes::kLogon},
                                                 {"logoff", TriggerTypes::kLogoff},
                                                 {"lock", TriggerTypes::kLock},
                                                 {"unlock", TriggerTypes::kUnlock}};
    return types;
}
