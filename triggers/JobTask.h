#pragma once

#include <QObject>

class TriggerObject;

// Turns a trigger into a command to the agent: execute-trigger (600) or
// trigger-info (601). Works on a private copy of the trigger object.
class JobTask : public QObject {
    Q_OBJECT
public:
    static bool FireJob(TriggerObject* object);
    static bool ReportTriggerInfo(TriggerObject* object);
    // Builds the command from a copy of the trigger.
    static bool Send(const TriggerObject& object, quint64 commandType);
    // Takes over the heap copy.
    static bool SendTriggerCommand(TriggerObject* copy, quint64 commandType);
};
