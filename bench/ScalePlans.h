#pragma once

#include <QDateTime>
#include <QString>

#include <random>

// A plan database as installations hold it: random times of day, a mix of
// once, daily, weekly and monthly schedules (some repeating within the day,
// some with an end), a few event plans and a few plans that have ended.
// No start falls into the quiet window, so that a run measures an idle
// service there rather than one that happens to be firing.
class ScalePlans {
public:
    ScalePlans(const QDateTime& now, int quietMinutes, unsigned seed);

    // Writes `count` plans to a fresh database file; gives how many of them
    // are calendar plans that have not ended, each of which the service
    // reports with trigger-info on its first poll; -1 when the file cannot
    // be written.
    int Store(const QString& path, int count);

    // The index a plan UUID of this generator was made from, or -1.
    static int IndexOf(const QString& planUuid);

private:
    struct Row;
    Row MakeRow(int index);
    QString PlanUuid(int index);
    QString TimeOfDayOutsideQuiet(qint64 intervalSecs, qint64 durationSecs);
    bool IsQuiet(int minuteOfDay) const;
    QString DayList(int low, int high, int maxCount);
    int Uniform(int low, int high);

    QDateTime m_now;
    int m_quietFrom;
    int m_quietMinutes;
    std::mt19937 m_random;
};
