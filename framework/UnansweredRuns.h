#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVector>

// The runs (execute-trigger, 600) written to the agent that it has not answered
// yet, per plan only the newest. Bytes written to a link that then drops may
// never have reached the agent, or reached it and died with it: the agent's
// answer is what ends a run's delivery, and until then the run is kept to be
// sent again.
class UnansweredRuns {
public:
    struct Run {
        QString planUuid;
        QString dueStart;
        QByteArray payload;
    };

    // A payload written to the agent; kept when it is a run.
    void Written(const QByteArray& payload);
    // A payload the agent sent; the result of a run ends its plan's delivery.
    void Answered(const QByteArray& payload);
    // Takes the kept runs, in the order they were written.
    QVector<Run> Take();
    int Size() const { return m_byPlan.size(); }

private:
    struct Kept {
        quint64 order;
        QByteArray payload;
    };

    QHash<QString, Kept> m_byPlan;
    quint64 m_written = 0;
};
