#pragma once

#include "store/RunStateStore.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <functional>
#include <map>

// The missed-run policy. With "skip" a start that passed without a run (the
// service was down, the machine slept, the wall clock stepped over it) stays
// missed. With "once" such a plan runs once as soon as the service notices,
// however many of its starts passed, each catch-up delayed by a random 0..N s
// so that a resume does not start every backup at the same moment. A plan that
// never ran before the gap is not caught up, nor is an event trigger.
//
// Lives on the application thread; every call comes from there.
class MissedRunCatchUp : public QObject {
    Q_OBJECT
public:
    // Sends one run for the plan, for the missed start, `delayMSecs` of spread
    // after it was noticed; false when the plan has no calendar fire any more
    // or the run was refused.
    using RunFunction =
        std::function<bool(const QString& planUuid, const QString& missedStart, qint64 delayMSecs)>;

    static constexpr quint64 kMaxSpreadSecs = 86400;
    // Catch-ups sent in one turn of the event loop; more wait for the next.
    static constexpr int kRunsPerTurn = 1000;

    explicit MissedRunCatchUp(RunFunction run, QObject* parent = nullptr);

    // Reads [Scheduler] MissedRunPolicy and MissedRunSpreadSecs.
    void Configure(const QString& policy, quint64 spreadSecs);
    bool CatchesUp() const { return m_once; }
    // The run state of the previous life of the service: which plans ran, and
    // which starts passed while it was down. `dueBefore` is the first start
    // text the service itself still runs ("yyyy-MM-dd hh:mm:ss").
    void Seed(const QHash<QString, RunStateStore::StoredRun>& runs, const QString& dueBefore);
    // A plan ran on its schedule: it has run, and a waiting catch-up is void.
    void NoteRun(const QString& planUuid);
    // A start of the plan passed without a run. True when a catch-up of the
    // plan waits now.
    bool NoteMissed(const QString& planUuid, const QString& missedStart);
    int WaitingCount() const { return static_cast<int>(m_byPlan.size()); }

private Q_SLOTS:
    void onTimeout();

private:
    struct CatchUp {
        QString planUuid;
        QString missedStart;
        qint64 delayMSecs;
    };
    // Keyed by the moment on the monotonic clock: a spread is a span of time,
    // which a step of the wall clock must not stretch or cut.
    using Queue = std::multimap<qint64, CatchUp>;

    void Arm();

    RunFunction m_run;
    bool m_once = false;
    quint64 m_spreadSecs = 0;
    QSet<QString> m_ranBefore;
    // The last start of each plan handed to the agent by the previous life or
    // as a catch-up.
    QHash<QString, QString> m_lastHanded;
    Queue m_queue;
    QHash<QString, Queue::iterator> m_byPlan;
    QTimer m_timer;
    QElapsedTimer m_monotonic;
};
