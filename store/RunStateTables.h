#pragma once

#include "RunHistory.h"
#include "RunStateUpdate.h"

#include <QString>

#include <atomic>

struct sqlite3;
class ScheduleHealth;

// The run state's tables through the connection's raw SQLite handle: a batch
// of a hundred thousand rows through QSqlQuery costs several microseconds a
// row in value conversions, through the handle about one. Used by one thread
// at a time, under the batch writer's write lock.
class RunStateTables {
public:
    // The plan that runs next, for the line the service shows to systemd.
    struct Summary {
        QString nextPlan;
        QString nextStart;
    };

    // Starts using an open handle; the history is left off, with one line,
    // when its tables cannot be kept. On the thread that opened the handle.
    void Attach(sqlite3* handle, const QString& path, const RunHistory::Limits& limits);
    void Detach();
    bool Attached() const { return m_handle != nullptr; }

    // One transaction with the batch's rows and history; one line per streak
    // of failures.
    bool Write(const RunStateBatch& batch);
    Summary EarliestStart();
    // The plans the file knows, and when it was last written.
    void LoadHealth(ScheduleHealth& health);
    // When the file was last written, ms since the epoch; 0 when unknown.
    qint64 WrittenAtMSecs() const { return m_writtenAtMSecs; }

private:
    bool WriteRows(const RunStateBatch& batch, qint64& writtenAt);
    void ReportReadFailure(const char* what);

    sqlite3* m_handle = nullptr;
    QString m_path;
    // Written inside the same transactions.
    RunHistory m_history;
    std::atomic<qint64> m_writtenAtMSecs{0};
    bool m_reportedWriteFailure = false;
};
