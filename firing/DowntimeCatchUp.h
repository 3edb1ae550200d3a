#pragma once

#include "FiringContext.h"

#include "store/RunStateStore.h"

#include <QHash>
#include <QString>

// The starts that passed while the service was down: caught up under the
// missed-run policy once, or recorded as missed under skip; and the one run
// that catches up a plan, for its missed start.
class DowntimeCatchUp {
public:
    explicit DowntimeCatchUp(FiringContext& context) : m_context(context) {}

    // Call once the fires have started.
    void CatchUp(const QHash<QString, RunStateStore::StoredRun>& runs);
    // Sends the run for the missed start, so that the agent and the run state
    // see which start it stands for; the plan's own next start stays as it
    // is. False when the plan has no calendar trigger any more.
    bool RunMissedStart(const QString& planUuid, const QString& missedStart, qint64 delayMSecs);

private:
    void ForgetStartsStillAhead(QHash<QString, RunStateStore::StoredRun>& runs);

    FiringContext& m_context;
};
