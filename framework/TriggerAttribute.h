#pragma once

#include "CommandObj.h"
#include "PackedDateTimeText.h"

#include <QString>

// The definition of one trigger, as plans carry it and as it is stored.
class TriggerAttribute : public CommandObj {
public:
    quint64 getTriggerType() const { return m_triggerType; }
    void setTriggerType(quint64 value) { m_triggerType = value; }
    QString getStartTime() const { return m_startTime.text(); }
    void setStartTime(const QString& value) { m_startTime = PackedDateTimeText(value); }
    QString getEndTime() const { return m_endTime; }
    void setEndTime(const QString& value) { m_endTime = value; }
    quint64 getInterval() const { return m_interval; }
    void setInterval(quint64 value) { m_interval = value; }
    quint64 getDuration() const { return m_duration; }
    void setDuration(quint64 value) { m_duration = value; }
    QString getWeekDays() const { return m_weekDays; }
    void setWeekDays(const QString& value) { m_weekDays = value; }
    QString getWhichMoths() const { return m_whichMoths; }
    void setWhichMoths(const QString& value) { m_whichMoths = value; }
    QString getMonthDays() const { return m_monthDays; }
    void setMonthDays(const QString& value) { m_monthDays = value; }
    quint64 getDayLastFlag() const { return m_dayLastFlag; }
    void setDayLastFlag(quint64 value) { m_dayLastFlag = value; }
    quint64 getTriggerEndFlag() const { return m_triggerEndFlag; }
    void setTriggerEndFlag(quint64 value) { m_triggerEndFlag = value; }

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) const override;

    bool operator==(const TriggerAttribute& other) const;

private:
    quint64 m_triggerType = 0;
    PackedDateTimeText m_startTime;
    QString m_endTime;
    quint64 m_interval = 0;
    quint64 m_duration = 0;
    QString m_weekDays;
    QString m_whichMoths;
    QString m_monthDays;
    quint64 m_dayLastFlag = 0;
    quint64 m_triggerEndFlag = 0;
};
