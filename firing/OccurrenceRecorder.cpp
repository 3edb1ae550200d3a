#include "OccurrenceRecorder.h"

#include "framework/Clock.h"
#include "store/RunStateRecorder.h"
#include "timing/DeadlineQueue.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"
#include "triggers/WallTime.h"

namespace {
constexpr qint64 kHourMSecs = 3600000;
// Enough to name every start a burst of late fires after one move handles.
constexpr size_t kJumpsKept = 16;
// Wider than any gap or repeated hour of the zone rules.
constexpr qint64 kOffsetChangeHours = 3;
} // namespace

OccurrenceRecorder::OccurrenceRecorder() : OccurrenceRecorder(Now()) {}

OccurrenceRecorder::OccurrenceRecorder(const Reading& first)
    : m_startedMSecs(first.wallMSecs), m_last(first) {}

OccurrenceRecorder::Reading OccurrenceRecorder::Now() {
    return Reading{Clock::nowMSecsSinceEpoch(), Clock::sinceBootMSecs(), Clock::monotonicMSecs()};
}

void OccurrenceRecorder::Look(const Reading& reading) {
    const qint64 wall = reading.wallMSecs - m_last.wallMSecs;
    const qint64 boot = reading.bootMSecs - m_last.bootMSecs;
    const qint64 monotonic = reading.monotonicMSecs - m_last.monotonicMSecs;
    m_last = reading;
    // A clock that NTP slews drifts by at most 0.05 %; over a long gap
    // between two looks that adds up to more than a second.
    const qint64 tolerance = DeadlineQueue::kStepToleranceMSecs + qAbs(boot) / 1000;
    if (qAbs(wall - boot) > tolerance) {
        m_jumps.push_back(Jump{reading.wallMSecs, RunHistory::Reason::ClockStepped});
    } else if (boot - monotonic > tolerance) {
        m_jumps.push_back(Jump{reading.wallMSecs, RunHistory::Reason::MachineSlept});
    }
    if (m_jumps.size() > kJumpsKept) {
        m_jumps.pop_front();
    }
}

RunHistory::Reason OccurrenceRecorder::CauseOf(qint64 dueMSecs) {
    Look(Now());
    return Classify(dueMSecs);
}

// The newest move noticed after the start was due is what passed over it.
RunHistory::Reason OccurrenceRecorder::Classify(qint64 dueMSecs) const {
    if (dueMSecs < m_startedMSecs) {
        return RunHistory::Reason::ServiceDown;
    }
    for (auto jump = m_jumps.crbegin(); jump != m_jumps.crend(); ++jump) {
        if (jump->atWallMSecs >= dueMSecs) {
            return jump->kind;
        }
    }
    return RunHistory::Reason::Delayed;
}

RunHistory::Occurrence OccurrenceRecorder::Handed(qint64 dueMSecs, RunHistory::Outcome outcome,
                                                  RunHistory::Reason reason) {
    return RunHistory::Occurrence{dueMSecs, Clock::nowMSecsSinceEpoch(), outcome, reason, 0, 0};
}

void OccurrenceRecorder::Ran(TriggerObject& object, qint64 dueMSecs, bool onTime) {
    RunHistory::Occurrence occurrence =
        Handed(dueMSecs, RunHistory::Outcome::OnTime, RunHistory::Reason::None);
    if (!onTime) {
        occurrence.outcome = RunHistory::Outcome::Late;
        occurrence.reason = CauseOf(dueMSecs);
    } else if (NearOffsetChange(dueMSecs) && InDaylightGap(object, dueMSecs)) {
        occurrence.outcome = RunHistory::Outcome::Moved;
        occurrence.reason = RunHistory::Reason::DaylightGap;
    } else if (NearOffsetChange(dueMSecs) && InRepeatedHour(dueMSecs)) {
        occurrence.reason = RunHistory::Reason::RepeatedHour;
    }
    Record(object.getPlanUuid(), occurrence);
}

void OccurrenceRecorder::Missed(const QString& planUuid, qint64 dueMSecs) {
    Record(planUuid,
           RunHistory::Occurrence{dueMSecs, -1, RunHistory::Outcome::Missed, CauseOf(dueMSecs), 0, 0});
}

void OccurrenceRecorder::CaughtUp(const QString& planUuid, qint64 dueMSecs, qint64 delayMSecs) {
    RunHistory::Occurrence occurrence = Handed(dueMSecs, RunHistory::Outcome::CaughtUp, CauseOf(dueMSecs));
    occurrence.detail = delayMSecs;
    Record(planUuid, occurrence);
}

void OccurrenceRecorder::Record(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    if (m_runState != nullptr) {
        m_runState->RecordOccurrence(planUuid, occurrence);
    }
}

bool OccurrenceRecorder::NearOffsetChange(qint64 dueMSecs) {
    const qint64 hour = dueMSecs / kHourMSecs;
    if (hour != m_checkedHour) {
        m_checkedHour = hour;
        const qint64 from = (hour - kOffsetChangeHours) * kHourMSecs;
        const qint64 to = (hour + kOffsetChangeHours + 1) * kHourMSecs;
        m_offsetChanges = QDateTime::fromMSecsSinceEpoch(from).offsetFromUtc() !=
                          QDateTime::fromMSecsSinceEpoch(to).offsetFromUtc();
    }
    return m_offsetChanges;
}

// The plan's own time of day does not exist on the start's date, and the
// start is where the gap moved it.
bool OccurrenceRecorder::InDaylightGap(TriggerObject& object, qint64 dueMSecs) {
    qint64 startWall = 0;
    if (!LocalTime::ParseWall(object.getTriggerAttribute().getStartTime(), startWall)) {
        return false;
    }
    const qint64 own =
        WallTime::Make(WallTime::DateOf(WallTime::Of(dueMSecs)), WallTime::TimeOfDay(startWall));
    WallTime::Reading reading = WallTime::Reading::Once;
    const qint64 moved = WallTime::InstantOf(own, &reading);
    return reading == WallTime::Reading::Never && moved / 1000 == dueMSecs / 1000;
}

// The same wall-clock time an hour before or after: the hour the clocks went
// back over.
bool OccurrenceRecorder::InRepeatedHour(qint64 dueMSecs) {
    const QString text = LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueMSecs));
    return LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueMSecs - kHourMSecs)) == text ||
           LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueMSecs + kHourMSecs)) == text;
}
