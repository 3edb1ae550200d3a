#include "StoredRowReader.h"

#include "TriggerRow.h"

#include <QByteArray>
#include <QVariant>

#include <sqlite3.h>

namespace {
// As Qt SQL's SQLite driver hands a column over: an integer as a 64-bit
// number, a real as a double, a blob as bytes, NULL as a null value.
void ReadRow(sqlite3_stmt* statement, TriggerRow::Values& row) {
    row.clear();
    for (int column = 0; column < TriggerRow::kColumns; ++column) {
        switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            row.append(QVariant(static_cast<qlonglong>(sqlite3_column_int64(statement, column))));
            break;
        case SQLITE_FLOAT:
            row.append(QVariant(sqlite3_column_double(statement, column)));
            break;
        case SQLITE_TEXT:
            row.append(QVariant(TriggerRow::ColumnText(statement, column)));
            break;
        case SQLITE_BLOB:
            row.append(QVariant(QByteArray(static_cast<const char*>(sqlite3_column_blob(statement, column)),
                                           sqlite3_column_bytes(statement, column))));
            break;
        default:
            row.append(QVariant());
        }
    }
}
} // namespace

StoredRowReader::StoredRowReader(sqlite3_stmt* statement) {
    m_thread = std::thread([this, statement] { Run(statement); });
}

StoredRowReader::~StoredRowReader() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_callerGone = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

bool StoredRowReader::Next(std::vector<Row>& batch) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!batch.empty()) {
        m_spent.push_back(std::move(batch));
        batch.clear();
        m_changed.notify_all();
    }
    m_changed.wait(lock, [this] { return !m_batches.empty() || m_readAll; });
    if (m_batches.empty()) {
        return false;
    }
    batch = std::move(m_batches.front());
    m_batches.pop_front();
    lock.unlock();
    m_changed.notify_all();
    return true;
}

void StoredRowReader::Run(sqlite3_stmt* statement) {
    TriggerRow::Values values;
    values.reserve(TriggerRow::kColumns);
    std::vector<Row> batch;
    bool going = true;
    while (going && sqlite3_step(statement) == SQLITE_ROW) {
        Row row;
        row.attribute = std::make_unique<TriggerAttribute>();
        if (!TriggerRow::ReadPlain(statement, row.planUuid, *row.attribute)) {
            ReadRow(statement, values);
            row.fault = TriggerRow::Read(values, row.planUuid, *row.attribute);
        }
        batch.push_back(std::move(row));
        if (batch.size() == kBatchRows) {
            going = Hand(batch);
        }
    }
    if (going && !batch.empty()) {
        Hand(batch);
    }
    values.clear();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_readAll = true;
    m_changed.notify_all();
    // The last batches come back after the last row was read.
    while (!m_callerGone) {
        DropSpentLocked(lock);
        m_changed.wait(lock, [this] { return m_callerGone || !m_spent.empty(); });
    }
    DropSpentLocked(lock);
}

bool StoredRowReader::Hand(std::vector<Row>& batch) {
    std::unique_lock<std::mutex> lock(m_mutex);
    DropSpentLocked(lock);
    m_changed.wait(lock, [this] { return m_batches.size() < kMaxWaitingBatches || m_callerGone; });
    if (m_callerGone) {
        return false;
    }
    m_batches.push_back(std::move(batch));
    batch.clear();
    batch.reserve(kBatchRows);
    lock.unlock();
    m_changed.notify_all();
    return true;
}

void StoredRowReader::DropSpentLocked(std::unique_lock<std::mutex>& lock) {
    std::vector<std::vector<Row>> spent;
    spent.swap(m_spent);
    lock.unlock();
    spent.clear();
    lock.lock();
}
