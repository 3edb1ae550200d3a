#pragma once

#include "framework/TriggerAttribute.h"

class ArgumentList;

// Builds a trigger definition from the command-line flags shared by
// "orvelctl preview" and "orvelctl plan", refusing values the service could
// never schedule.
class TriggerOptions {
public:
    static const QStringList& Flags();
    static QString Help();
    static bool Build(const ArgumentList& arguments, TriggerAttribute& attribute, QString& error);

private:
    // True, with the error line, when the check found a fault in the flag's value.
    static bool Refuse(const QString& flag, const QString& fault, QString& error);
};
