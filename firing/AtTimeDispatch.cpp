#include "AtTimeDispatch.h"

#include "framework/Clock.h"
#include "framework/LogText.h"
#include "framework/Logger.h"
#include "triggers/AtTimeFire.h"
#include "triggers/CalendarSchedule.h"
#include "triggers/FireState.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

namespace {
constexpr qint64 kMinuteMSecs = 60000;
} // namespace

bool AtTimeDispatch::Poll(TriggerFire* entry, qint64& earliestDueMSecs) {
    AtTimeFire* fire = TriggerFire::AtTimeOf(entry);
    TriggerObject* object = fire != nullptr ? fire->GetTriggerObject() : nullptr;
    const qint64 nowMSecs = Clock::nowMSecsSinceEpoch();
    if (object == nullptr) {
        Logger::Error("AtTimeFire or TriggerObject pointer is NULL in the onAtTimerOut.");
        earliestDueMSecs = qMin(earliestDueMSecs, nowMSecs);
        return true;
    }
    qint64 minuteStartMSecs = 0;
    const bool valid = fire->DueMinuteStart(*object, minuteStartMSecs);
    if (valid && nowMSecs < minuteStartMSecs) {
        // Due in a later minute: the common case, kept free of any other work.
        earliestDueMSecs = qMin(earliestDueMSecs, minuteStartMSecs);
        return true;
    }
    const QString text = object->getNextStartTime();
    const bool fired = valid && nowMSecs < minuteStartMSecs + kMinuteMSecs;
    if (fired) {
        Run(*fire, *object, text);
    } else if (!text.isEmpty()) {
        NoteMissed(object->getPlanUuid(), text, nowMSecs, valid);
    }
    return FollowUp(*fire, *object, fired, nowMSecs, earliestDueMSecs);
}

void AtTimeDispatch::Run(AtTimeFire& fire, TriggerObject& object, const QString& text) {
    const QString planUuid = object.getPlanUuid();
    if (!fire.NowFire(&object)) {
        Logger::Error(QString("The AtTimeFire of scheduler[%1] NowFire execution failed in the onAtTimerOut.")
                          .arg(LogText::Outside(planUuid)));
        return;
    }
    Logger::Info(QString("The AtTimeFire of scheduler[%1] NowFire execution success in the onAtTimerOut.")
                     .arg(LogText::Outside(planUuid)));
    m_context.occurrences.Ran(object, LocalTime::Parse(text).toMSecsSinceEpoch(), true);
    m_context.NoteRun(planUuid);
}

void AtTimeDispatch::NoteMissed(const QString& planUuid, const QString& text, qint64 nowMSecs, bool valid) {
    Logger::Warn(QString("The AtTimeFire of scheduler[%1] nextdatetime[%2] less than currdatetime[%3] in the "
                         "onAtTimerOut.")
                     .arg(LogText::Outside(planUuid), text,
                          LocalTime::Format(QDateTime::fromMSecsSinceEpoch(nowMSecs))));
    if (valid && (m_context.catchUp == nullptr || !m_context.catchUp->NoteMissed(planUuid, text))) {
        m_context.occurrences.Missed(planUuid, LocalTime::Parse(text).toMSecsSinceEpoch());
    }
}

bool AtTimeDispatch::FollowUp(AtTimeFire& fire, TriggerObject& object, bool fired, qint64 nowMSecs,
                              qint64& earliestDueMSecs) {
    const QString planUuid = object.getPlanUuid();
    // Kept in instants: every plan of a pass goes through here, and a local
    // QDateTime costs a zone conversion each time it is made or compared.
    const qint64 minuteStart = CalendarSchedule::MinuteStart(nowMSecs);
    qint64 nextMSecs = 0;
    const quint64 state = fired ? fire.SeekNextPolledStartTimeAt(minuteStart, true, nextMSecs)
                                : fire.SeekLateStartTimeAt(minuteStart, nextMSecs);
    if (state == FireState::kScheduled) {
        if (nextMSecs < nowMSecs) {
            Logger::Error(
                QString("Time trigger[%1] error,NextTime[%2] less than or equal to CurrentTime[%3] in "
                        "onAtTimerOut.")
                    .arg(LogText::Outside(planUuid), LocalTime::FormatPrecise(nextMSecs),
                         LocalTime::FormatPrecise(nowMSecs)));
        }
        // A minute starts less than a minute before any instant in it, so a
        // start a minute or more after the earliest due cannot move it; most
        // plans of a pass are such, and each look costs a zone conversion.
        if (nextMSecs - kMinuteMSecs < earliestDueMSecs) {
            earliestDueMSecs = qMin(earliestDueMSecs, CalendarSchedule::MinuteStart(nextMSecs));
        }
        return true;
    }
    if (state == FireState::kFinished) {
        m_context.EndTrigger(&object, "AtTimeFire");
    } else {
        Logger::Error(
            QString("The AtTimeFire of scheduler[%1] execution error.").arg(LogText::Outside(planUuid)));
    }
    return false;
}
