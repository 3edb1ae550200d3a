#pragma once

#include "TriggerAttribute.h"

#include <QString>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

struct sqlite3_stmt;

// Steps a prepared query of the stored triggers on a thread of its own and
// turns each row into its plan UUID and definition, while the caller checks
// and keeps the rows read before: at a million plans each half takes about a
// second, and the loading has the machine to itself.
//
// The statement is the reader's alone from construction until Next() has
// returned false or the reader is destroyed.
//
// The rows are made on the reader's thread, which glibc gives a heap arena of
// its own, and they are destroyed there too: each batch goes back with the
// next call of Next(). Rows freed on the caller's thread would leave their
// blocks to the caller's lasting objects and pin the reader's arena in memory.
// The caller copies what it keeps.
class StoredRowReader {
public:
    struct Row {
        QString planUuid;
        std::unique_ptr<TriggerAttribute> attribute;
        // Why the row cannot become a trigger; empty when it can.
        QString fault;
    };

    explicit StoredRowReader(sqlite3_stmt* statement);
    ~StoredRowReader();
    StoredRowReader(const StoredRowReader&) = delete;
    StoredRowReader& operator=(const StoredRowReader&) = delete;

    // Takes back the rows of `batch`, which the caller has used, and gives the
    // next ones in the query's order; false once every row was handed.
    bool Next(std::vector<Row>& batch);

private:
    static constexpr size_t kBatchRows = 256;
    // Batches read ahead at most, so that a slow caller does not make the
    // reader hold the whole table a second time.
    static constexpr size_t kMaxWaitingBatches = 4;

    void Run(sqlite3_stmt* statement);
    // False when the caller has gone.
    bool Hand(std::vector<Row>& batch);
    // Destroys the batches handed back, outside the lock.
    void DropSpentLocked(std::unique_lock<std::mutex>& lock);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::vector<Row>> m_batches;
    std::vector<std::vector<Row>> m_spent;
    bool m_readAll = false;
    bool m_callerGone = false;
    std::thread m_thread;
};
