#include "PendingFrames.h"

#include "FrameReader.h"
#include "WireFormat.h"

#include "CommandBuilder.h"
#include "RequestCommand.h"
#include "RequestTriggerExecuteInfoData.h"

#include <QDataStream>

#include <memory>

QString PendingFrames::KeyOf(const QByteArray& payload, QString& planUuid) {
    QDataStream in(payload);
    in.setVersion(WireFormat::kStreamVersion);
    quint64 type = 0;
    in >> type >> planUuid;
    if (in.status() != QDataStream::Ok || planUuid.isEmpty() ||
        (type != kExecuteTrigger && type != kTriggerInfo)) {
        return QString();
    }
    return QString("%1:%2").arg(type).arg(planUuid);
}

void PendingFrames::Erase(std::list<Entry>::iterator entry) {
    if (!entry->key.isEmpty()) {
        m_byKey.remove(entry->key);
    }
    m_frames.erase(entry);
}

QString PendingFrames::DueOf(const QByteArray& payload) {
    std::unique_ptr<CommCommand> command(CommandBuilder::BytearrayToCommand(payload));
    const auto* request = dynamic_cast<const RequestCommand*>(command.get());
    RequestTriggerExecuteInfoData data;
    if (request == nullptr || !CommandBuilder::BytearrayToData(request->getRfrnRequestData(), &data)) {
        return QString();
    }
    return data.getNextStartTime();
}

PendingFrames::Outcome PendingFrames::Push(const QByteArray& payload) {
    Outcome outcome;
    const QString key = KeyOf(payload, outcome.planUuid);
    int merged = 0;
    if (!key.isEmpty()) {
        const auto waiting = m_byKey.constFind(key);
        if (waiting != m_byKey.constEnd()) {
            outcome.mergedRun = key.startsWith(QString::number(kExecuteTrigger));
            if (outcome.mergedRun) {
                const std::list<Entry>::iterator replaced = waiting.value();
                merged = replaced->merged + 1;
                outcome.mergedCount = merged;
                outcome.mergedDue = DueOf(FrameReader::PayloadOf(replaced->frame));
                outcome.keptDue = DueOf(payload);
            }
            Erase(waiting.value());
        }
    }
    if (m_frames.size() >= m_limit) {
        Erase(m_frames.begin());
        outcome.droppedOldest = true;
    }
    m_frames.push_back(Entry{FrameReader::Frame(payload), key, merged});
    if (!key.isEmpty()) {
        m_byKey.insert(key, std::prev(m_frames.end()));
    }
    return outcome;
}

QByteArray PendingFrames::TakeFront() {
    if (m_frames.empty()) {
        return QByteArray();
    }
    QByteArray frame = m_frames.front().frame;
    Erase(m_frames.begin());
    return frame;
}
