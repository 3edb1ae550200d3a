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
    static bool IsDateTimeText(const QString& text);

private:
    static bool CheckList(const ArgumentList& arguments, const QString& flag, quint64 highest,
                          QString& error);
};
