#include "ScheduleHealth.h"

#include "triggers/LocalTime.h"

#include <QDateTime>

#include <algorithm>
#include <tuple>

namespace {
// "yyyy-MM-dd hh:mm:ss" as the number yyyyMMddhhmmss, which orders as the text
// does and costs no time-zone conversion; 0 for any other text.
quint64 WallClockKey(const QString& text) {
    static constexpr int kDigits[] = {0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18};
    if (text.size() != 19) {
        return 0;
    }
    quint64 key = 0;
    for (const int at : kDigits) {
        const QChar c = text.at(at);
        if (!c.isDigit()) {
            return 0;
        }
        key = key * 10 + static_cast<quint64>(c.digitValue());
    }
    return key;
}

QString WallClockText(quint64 key) {
    const auto part = [key](int skip, int width) {
        quint64 value = key;
        for (int i = 0; i < skip; ++i) {
            value /= 10;
        }
        quint64 modulus = 1;
        for (int i = 0; i < width; ++i) {
            modulus *= 10;
        }
        return static_cast<int>(value % modulus);
    };
    return QString::asprintf("%04d-%02d-%02d %02d:%02d:%02d", part(10, 4), part(8, 2), part(6, 2), part(4, 2),
                             part(2, 2), part(0, 2));
}

// What orders the plans in trouble: overdue starts first, then runs the agent
// has not answered, then refusals, then missed starts, each oldest first.
struct Candidate {
    int rank;
    qint64 key;
    quint32 row;
};
} // namespace

ScheduleHealth::Row& ScheduleHealth::At(const QString& planUuid) {
    const quint32 hash = qHash(planUuid);
    size_t slot = SlotOf(planUuid, hash);
    if (m_index[slot] != 0) {
        return m_rows[m_index[slot] - 1];
    }
    if ((m_rows.size() + 1) * 2 > m_index.size()) {
        GrowIndex();
        slot = SlotOf(planUuid, hash);
    }
    if (m_rows.size() == m_rows.capacity()) {
        // A quarter more, not twice: the rows are most of the health's bytes,
        // and doubling would leave up to half of them unused for good.
        m_rows.reserve(m_rows.size() + m_rows.size() / 4 + kFirstRows);
    }
    m_rows.push_back(Row{});
    m_rows.back().planUuid = planUuid;
    m_rows.back().hash = hash;
    m_index[slot] = static_cast<quint32>(m_rows.size());
    return m_rows.back();
}

size_t ScheduleHealth::SlotOf(const QString& planUuid, quint32 hash) const {
    const size_t mask = m_index.size() - 1;
    size_t slot = hash & mask;
    while (m_index[slot] != 0) {
        const Row& row = m_rows[m_index[slot] - 1];
        if (row.hash == hash && row.planUuid == planUuid) {
            return slot;
        }
        slot = (slot + 1) & mask;
    }
    return slot;
}

void ScheduleHealth::GrowIndex() {
    m_index.assign(m_index.size() * 2, 0);
    const size_t mask = m_index.size() - 1;
    for (size_t i = 0; i < m_rows.size(); ++i) {
        size_t slot = m_rows[i].hash & mask;
        while (m_index[slot] != 0) {
            slot = (slot + 1) & mask;
        }
        m_index[slot] = static_cast<quint32>(i + 1);
    }
}

// Linear probing without tombstones: a later entry of the same run of slots
// moves back into the freed one when its home slot allows it.
void ScheduleHealth::EraseSlot(size_t slot) {
    const size_t mask = m_index.size() - 1;
    for (size_t next = (slot + 1) & mask; m_index[next] != 0; next = (next + 1) & mask) {
        const size_t home = m_rows[m_index[next] - 1].hash & mask;
        const bool stays = slot <= next ? (slot < home && home <= next) : (slot < home || home <= next);
        if (!stays) {
            m_index[slot] = m_index[next];
            slot = next;
        }
    }
    m_index[slot] = 0;
}

void ScheduleHealth::Schedule(Row& row, const QString& nextStart, quint64 endFlag) {
    row.ended = endFlag != 0;
    row.nextKey = row.ended ? 0 : WallClockKey(nextStart);
}

void ScheduleHealth::Put(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                         quint64 endFlag, qint64 handedMSecs, bool hasResult, quint64 result,
                         qint64 resultMSecs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Row& row = At(planUuid);
    row.triggerType = static_cast<quint16>(triggerType);
    Schedule(row, nextStart, endFlag);
    row.handedMSecs = handedMSecs;
    row.hasResult = hasResult;
    row.refusal = result != 0;
    row.resultMSecs = resultMSecs;
}

void ScheduleHealth::NoteRun(const QString& planUuid, quint64 triggerType, qint64 handedMSecs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Row& row = At(planUuid);
    row.triggerType = static_cast<quint16>(triggerType);
    row.handedMSecs = handedMSecs;
    row.missedMSecs = 0;
}

void ScheduleHealth::NoteMissed(const QString& planUuid, qint64 dueMSecs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    At(planUuid).missedMSecs = dueMSecs;
}

void ScheduleHealth::NoteSchedule(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                                  quint64 endFlag) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Row& row = At(planUuid);
    row.triggerType = static_cast<quint16>(triggerType);
    Schedule(row, nextStart, endFlag);
}

void ScheduleHealth::NoteResult(const QString& planUuid, quint64 result, qint64 atMSecs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Row& row = At(planUuid);
    row.hasResult = true;
    row.refusal = result != 0;
    row.resultMSecs = atMSecs;
}

// The last row takes the place of the removed one.
void ScheduleHealth::Remove(const QString& planUuid) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const size_t slot = SlotOf(planUuid, qHash(planUuid));
    if (m_index[slot] == 0) {
        return;
    }
    const quint32 at = m_index[slot] - 1;
    EraseSlot(slot);
    if (at + 1 != m_rows.size()) {
        m_index[SlotOf(m_rows.back().planUuid, m_rows.back().hash)] = at + 1;
        m_rows[at] = std::move(m_rows.back());
    }
    m_rows.pop_back();
}

void ScheduleHealth::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_rows.clear();
    m_index.assign(kFirstSlots, 0);
}

ScheduleHealth::Figures ScheduleHealth::Take(qint64 nowMSecs, qint64 overdueAfterMSecs,
                                             size_t troubleLimit) const {
    const qint64 dueBeforeMSecs = nowMSecs - overdueAfterMSecs;
    const quint64 dueKey = WallClockKey(LocalTime::Format(QDateTime::fromMSecsSinceEpoch(dueBeforeMSecs)));
    Figures figures;
    quint64 earliestKey = 0;
    std::vector<Candidate> candidates;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (size_t i = 0; i < m_rows.size(); ++i) {
        const Row& row = m_rows[i];
        ++figures.plans[{row.triggerType, row.ended}];
        if (row.nextKey != 0 && (earliestKey == 0 || row.nextKey < earliestKey)) {
            earliestKey = row.nextKey;
        }
        const bool startPassed = row.nextKey != 0 && row.nextKey <= dueKey;
        const bool answered = row.hasResult && row.resultMSecs >= row.handedMSecs;
        const bool unanswered = row.handedMSecs != 0 && !answered && row.handedMSecs <= dueBeforeMSecs;
        const bool refused = answered && row.handedMSecs != 0 && row.refusal;
        figures.overdue += startPassed || unanswered ? 1 : 0;
        figures.refused += refused ? 1 : 0;
        figures.missed += row.missedMSecs != 0 ? 1 : 0;
        if (startPassed) {
            candidates.push_back({0, static_cast<qint64>(row.nextKey), static_cast<quint32>(i)});
        } else if (unanswered) {
            candidates.push_back({1, row.handedMSecs, static_cast<quint32>(i)});
        } else if (refused) {
            candidates.push_back({2, row.resultMSecs, static_cast<quint32>(i)});
        } else if (row.missedMSecs != 0) {
            candidates.push_back({3, row.missedMSecs, static_cast<quint32>(i)});
        }
    }
    if (earliestKey != 0) {
        figures.earliestNextMSecs = LocalTime::Parse(WallClockText(earliestKey)).toMSecsSinceEpoch();
    }
    const size_t listed = std::min(troubleLimit, candidates.size());
    figures.troubleLeftOut = candidates.size() - listed;
    const auto order = [this](const Candidate& a, const Candidate& b) {
        return std::tie(a.rank, a.key) != std::tie(b.rank, b.key)
                   ? std::tie(a.rank, a.key) < std::tie(b.rank, b.key)
                   : m_rows[a.row].planUuid < m_rows[b.row].planUuid;
    };
    std::partial_sort(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(listed),
                      candidates.end(), order);
    for (size_t i = 0; i < listed; ++i) {
        const Candidate& c = candidates[i];
        const qint64 since =
            c.rank == 0 ? LocalTime::Parse(WallClockText(static_cast<quint64>(c.key))).toMSecsSinceEpoch()
                        : c.key;
        const Problem problem =
            c.rank < 2 ? Problem::Overdue : (c.rank == 2 ? Problem::Refused : Problem::Missed);
        figures.trouble.push_back(Trouble{m_rows[c.row].planUuid, problem, since});
    }
    return figures;
}
