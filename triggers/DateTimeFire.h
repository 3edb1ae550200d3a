#pragma once

#include "TriggerFire.h"

#include <QDate>
#include <QDateTime>
#include <QList>

class TriggerAttribute;

// Fire of the calendar trigger types (once, daily, weekly, monthly). Owns the
// start-time computation and the calendar day rules; its two subclasses only
// decide how the computed time is waited for.
class DateTimeFire : public TriggerFire {
    Q_OBJECT
public:
    // Date searches stop after this many years of calendar: lists that can
    // never match end the computation with an error, never with a hang.
    static constexpr int kSearchYears = 9;

    explicit DateTimeFire(QObject* parent = nullptr);

    quint64 Start() override;
    void Stop() override;

    // Computes the next start time after now; writes next only for state 3.
    quint64 SeekNextStartTime(const QDateTime& now, QDateTime& next);
    quint64 getFireState() const { return m_fireState; }

Q_SIGNALS:
    void timerFireTimeout(QString planName);

public Q_SLOTS:
    // Stops the fire's timer, if it has one; the fire keeps its trigger.
    virtual void onkillDateTimer();

protected:
    void setFireState(quint64 state) { m_fireState = state; }

private:
    quint64 SeekFirstStartTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 SeekNextDayStartTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 SeekNextRepeatTime(const QDateTime& now, quint64 type, QDateTime& out);
    quint64 CandidateAfter(const QDateTime& now, const QDate& date, QDateTime& out);
    void FillDefaultStartTime(TriggerAttribute& attribute);
    void Publish(const QDateTime& candidate);
    static bool IsEndTimePassed(const QDateTime& t, const QDateTime& end);
    QTime StartTimeOfDay();

    // Calendar day rules.
    bool SeekNextDate(const QDateTime& from, quint64 type, QDate& date);
    bool IsWeekDayMatched(const QDateTime& t);
    bool SeekNextWeekDay(const QDateTime& from, QDate& date);
    bool IsMonthDayMatched(const QDateTime& t);
    bool SeekNextMonthDay(const QDateTime& from, QDate& date);
    static quint64 NextGreaterValue(const QList<quint64>& list, quint64 x);

    quint64 m_fireState = 0;
};
