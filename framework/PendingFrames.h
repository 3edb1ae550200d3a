#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <list>

// The frames that wait for the agent while it cannot be reached, oldest first,
// at most `limit` of them. Per plan only the newest execute-trigger (600) and
// the newest trigger-info (601) wait: several runs of one backup queued during
// an outage would otherwise start together when the agent returns, and only the
// latest trigger-info still says something true.
class PendingFrames {
public:
    static constexpr quint64 kExecuteTrigger = 600;
    static constexpr quint64 kTriggerInfo = 601;

    struct Outcome {
        bool mergedRun = false; // an older execute-trigger of the same plan was replaced
        bool droppedOldest = false;
        QString planUuid;
        // With mergedRun: the start the replaced run was for, the start of the
        // run that waits now, and how many earlier starts that one stands for.
        QString mergedDue;
        QString keptDue;
        int mergedCount = 0;
    };

    explicit PendingFrames(size_t limit) : m_limit(limit) {}

    // Takes the payload of one command and keeps its frame.
    Outcome Push(const QByteArray& payload);
    bool Empty() const { return m_frames.empty(); }
    size_t Size() const { return m_frames.size(); }
    QByteArray TakeFront();

private:
    struct Entry {
        QByteArray frame;
        QString key;
        int merged = 0;
    };

    // The merge key of a payload ("600:<plan>"), empty for every other command
    // and for bytes that do not decode.
    static QString KeyOf(const QByteArray& payload, QString& planUuid);
    // The start an execute-trigger's payload runs for; empty when it has none.
    static QString DueOf(const QByteArray& payload);
    void Erase(std::list<Entry>::iterator entry);

    size_t m_limit;
    std::list<Entry> m_frames;
    QHash<QString, std::list<Entry>::iterator> m_byKey;
};
