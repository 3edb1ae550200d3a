#pragma once

#include "CalendarRule.h"

#include "framework/RequestNewOperationData.h"
#include "framework/TriggerAttribute.h"

#include <QDateTime>
#include <QString>

// The service's working record of one scheduled plan: identity, trigger
// definition and what the schedule computation remembers between two runs.
class TriggerObject {
public:
    TriggerObject() = default;
    explicit TriggerObject(const RequestNewOperationData& data);
    TriggerObject(const TriggerObject&) = default;
    TriggerObject& operator=(const TriggerObject&) = default;
    virtual ~TriggerObject() = default;

    virtual void Read(QDataStream& in);
    virtual void Write(QDataStream& out) const;

    QString getPlanUuid() const { return m_planUuid; }
    void setPlanUuid(const QString& value) { m_planUuid = value; }
    QString getPlanName() const { return m_planName; }
    void setPlanName(const QString& value) { m_planName = value; }
    TriggerAttribute getTriggerAttribute() const { return m_triggerAttribute; }
    // Reads the type without handing out the attribute for change.
    quint64 getTriggerType() const { return m_triggerAttribute.getTriggerType(); }
    quint64 getTriggerEndFlag() const { return m_triggerAttribute.getTriggerEndFlag(); }
    TriggerAttribute& getObjectTriggerAttribute() {
        m_calendarRuleStale = true;
        return m_triggerAttribute;
    }
    // For reading only: the parsed rule stays, and nothing is written.
    const TriggerAttribute& getObjectTriggerAttribute() const { return m_triggerAttribute; }
    void setTriggerAttribute(const TriggerAttribute& value) {
        m_triggerAttribute = value;
        m_calendarRuleStale = true;
    }
    // The attribute's calendar definition, parsed on first use after the
    // attribute was set or handed out for change, and kept for every later
    // computation.
    const CalendarRule& getCalendarRule();
    quint64 getRepeatCount() const { return m_repeatCount; }
    void setRepeatCount(quint64 value) { m_repeatCount = value; }
    quint64 getStartOffsetSecs() const { return m_startOffsetSecs; }
    void setStartOffsetSecs(quint64 value) { m_startOffsetSecs = value; }
    quint64 getFirstSeekDone() const { return m_firstSeekDone; }
    void setFirstSeekDone(quint64 value) { m_firstSeekDone = value; }
    // Made from the instant and its offset when one stands behind it, so that
    // a million plans do not each keep a text the wire, the log and the run
    // state read only when a start is computed or run.
    QString getNextStartTime() const;
    // Only a text that no instant stands behind, or that differs from it.
    const QString& getNextStartText() const { return m_nextStartTime; }
    // A text alone names no instant in a repeated hour: it is set so only
    // where no computation stands behind it, and then read back as local time.
    void setNextStartTime(const QString& value);
    // The computed start: its text, and the instant with the UTC offset it
    // had, which the firing compares and the run state keeps.
    void setNextStart(const QDateTime& next);
    void setNextStart(qint64 msecs, int offsetSecs);
    // A text unlike its instant (a damaged run state) is kept and read as it is.
    void setNextStart(const QString& text, qint64 msecs, int offsetSecs);
    // 0 while no instant stands behind the text.
    qint64 getNextStartMSecs() const { return m_nextStartMSecs; }
    int getNextStartOffsetSecs() const { return m_nextStartOffsetSecs; }

    // The definition the progress was computed from, as it was stored or
    // commanded, before any start was filled in; 0 when unknown.
    quint64 getDefinitionFingerprint() const { return m_definitionFingerprint; }
    void setDefinitionFingerprint(quint64 value) { m_definitionFingerprint = value; }
    // The start time an empty start text was filled with, kept so that the
    // plan keeps its time of day across restarts; empty otherwise.
    QString getFilledStartTime() const { return m_filledStartTime; }
    void setFilledStartTime(const QString& value) { m_filledStartTime = value; }

private:
    QString m_planUuid;
    QString m_planName;
    TriggerAttribute m_triggerAttribute;
    quint64 m_repeatCount = 0;
    quint64 m_startOffsetSecs = 0;
    quint64 m_firstSeekDone = 0;
    // Only while m_nextStartIsText: no instant stands behind it, or it differs.
    QString m_nextStartTime;
    CalendarRule m_calendarRule;
    qint64 m_nextStartMSecs = 0;
    // Together, so that a million records carry no padding between them.
    int m_nextStartOffsetSecs = 0;
    bool m_calendarRuleStale = true;
    bool m_nextStartIsText = true;
    quint64 m_definitionFingerprint = 0;
    QString m_filledStartTime;
};
