#pragma once

#include <QDate>
#include <QDateTime>
#include <QTime>

// Local wall-clock times of the trigger texts ("yyyy-MM-dd hh:mm:ss").
//
// A wall-clock time that does not exist because the clocks were put forward
// (02:30 on a spring-forward night in much of Europe) is moved on by the length
// of the gap, as other schedulers do, instead of giving an invalid time that
// would end the trigger.
class LocalTime {
public:
    static QDateTime At(const QDate& date, const QTime& time);
    // Invalid when the text is not "yyyy-MM-dd hh:mm:ss".
    static QDateTime Parse(const QString& text);
    static QTime TimeOfDay(const QString& text);
    static bool IsWellFormed(const QString& text);
    static QString Format(const QDateTime& t);
};
