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
    };

    explicit PendingFrames(size_t limit) : m_limit(limit) {}

    // Takes the payload of one command and keeps its frame.
    Outcome Push(const QByteArray& payload);
    bool Empty() const { return m_frames.empty(); }
    QByteArray TakeFront();

private:
    struct Entry {
        QByteArray frame;
        QString key;
    };

    // The merge key of a payload ("600:<plan>"), empty for every other command
    // and for bytes that do not decode.
    static QString KeyOf(const QByteArray& payload, QString& planUuid);
    void Erase(std::list<Entry>::iterator entry);

    size_t m_limit;
    std::list<Entry> m_frames;
    QHash<QString, std::list<Entry>::iterator> m_byKey;
};
