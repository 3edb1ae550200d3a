#include "MissedRunCatchUp.h"

#include "framework/LogText.h"
#include "framework/Logger.h"

#include <QRandomGenerator>

MissedRunCatchUp::MissedRunCatchUp(RunFunction run, QObject* parent)
    : QObject(parent), m_run(std::move(run)) {
    m_monotonic.start();
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &MissedRunCatchUp::onTimeout);
}

void MissedRunCatchUp::Configure(const QString& policy, quint64 spreadSecs) {
    const QString name = policy.trimmed().toLower();
    if (name != "skip" && name != "once" && !name.isEmpty()) {
        Logger::Warn(QString("[Scheduler] MissedRunPolicy '%1' is neither skip nor once; missed starts are "
                             "skipped.")
                         .arg(LogText::Outside(policy)));
    }
    m_once = name == "once";
    m_spreadSecs = qMin(spreadSecs, kMaxSpreadSecs);
}

void MissedRunCatchUp::Seed(const QHash<QString, RunStateStore::StoredRun>& runs, const QString& dueBefore) {
    if (!m_once) {
        return;
    }
    for (auto it = runs.constBegin(); it != runs.constEnd(); ++it) {
        const RunStateStore::StoredRun& run = it.value();
        // A resumed plan waited for its stored start, which is due whether
        // or not the plan ran before.
        if (run.lastDue.isEmpty() && !run.resumed) {
            continue;
        }
        m_ranBefore.insert(it.key());
        if (!run.lastDue.isEmpty()) {
            m_lastHanded.insert(it.key(), run.lastDue);
        }
        // The start the service was waiting for when it went down; the texts
        // compare as the times they name.
        if (!run.nextStart.isEmpty() && run.nextStart < dueBefore) {
            NoteMissed(it.key(), run.nextStart);
        }
    }
}

void MissedRunCatchUp::NoteRun(const QString& planUuid) {
    if (!m_once) {
        return;
    }
    m_ranBefore.insert(planUuid);
    const auto waiting = m_byPlan.constFind(planUuid);
    if (waiting != m_byPlan.constEnd()) {
        m_queue.erase(waiting.value());
        m_byPlan.erase(waiting);
    }
}

bool MissedRunCatchUp::NoteMissed(const QString& planUuid, const QString& missedStart) {
    if (!m_once || !m_ranBefore.contains(planUuid)) {
        return false;
    }
    // A start handed before, by the previous life or as a catch-up, has run.
    const auto handed = m_lastHanded.constFind(planUuid);
    if (handed != m_lastHanded.constEnd() && missedStart <= handed.value()) {
        return false;
    }
    if (m_byPlan.contains(planUuid)) {
        return true;
    }
    const qint64 delayMSecs =
        m_spreadSecs == 0 ? 0
                          : QRandomGenerator::global()->bounded(static_cast<int>(m_spreadSecs) * 1000 + 1);
    const auto entry =
        m_queue.emplace(m_monotonic.elapsed() + delayMSecs, CatchUp{planUuid, missedStart, delayMSecs});
    m_byPlan.insert(planUuid, entry);
    Arm();
    return true;
}

void MissedRunCatchUp::Arm() {
    if (m_queue.empty()) {
        m_timer.stop();
        return;
    }
    const qint64 wait = qMax<qint64>(0, m_queue.begin()->first - m_monotonic.elapsed());
    // Spreads are capped far below the 24.8 days a timer interval can hold.
    m_timer.start(static_cast<int>(wait));
}

void MissedRunCatchUp::onTimeout() {
    const qint64 nowMSecs = m_monotonic.elapsed();
    for (int sent = 0; sent < kRunsPerTurn && !m_queue.empty() && m_queue.begin()->first <= nowMSecs;
         ++sent) {
        const CatchUp waiting = m_queue.begin()->second;
        m_byPlan.remove(waiting.planUuid);
        m_queue.erase(m_queue.begin());
        // The poll that finds the same start passed must not catch it up again.
        m_lastHanded.insert(waiting.planUuid, waiting.missedStart);
        m_run(waiting.planUuid, waiting.missedStart, waiting.delayMSecs);
    }
    Arm();
}
