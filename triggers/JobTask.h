#pragma once

#include <QObject>

#include <functional>

class TriggerObject;

// Turns a trigger into a command to the agent: execute-trigger (600) or
// trigger-info (601). Works on a private copy of the trigger object.
class JobTask : public QObject {
    Q_OBJECT
public:
    static bool FireJob(TriggerObject* object);
    static bool ReportTriggerInfo(TriggerObject* object);
    // Takes over the heap copy.
    static bool SendTriggerCommand(TriggerObject* copy, quint64 commandType);

    // Told of each command the framework took, with the copy of the trigger it
    // was built from, on the thread that sent it. Whoever keeps the run state
    // sets it; the texts are the trigger's own, so recording them allocates
    // nothing.
    using HandedRecorder = std::function<void(const TriggerObject& sent, quint64 commandType)>;
    static void SetHandedRecorder(HandedRecorder recorder);

private:
    static bool SendCopy(TriggerObject* object, quint64 commandType);
};
