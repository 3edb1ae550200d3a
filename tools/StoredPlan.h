#pragma once

#include "triggers/TriggerObject.h"

#include <QString>

// A stored plan as the running service holds it: its row of data/alldb.db and
// where its run state (data/state.db) says it stands, so that a preview goes
// on from there.
class StoredPlan {
public:
    bool Load(const QString& databasePath, const QString& statePath, const QString& planUuid, QString& error);

    TriggerObject& object() { return m_object; }
    bool ended() const { return m_ended; }
    // The next start the service holds; false when it has computed none yet,
    // and the preview starts with a first computation.
    bool nextStart(qint64& msecs) const;

private:
    void Resume(const QString& nextStart);

    TriggerObject m_object;
    bool m_ended = false;
    bool m_hasNextStart = false;
    qint64 m_nextStartMSecs = 0;
};
