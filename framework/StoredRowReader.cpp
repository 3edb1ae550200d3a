#include "StoredRowReader.h"

#include "TriggerRow.h"

#include <QByteArray>
#include <QVariant>

#include <sqlite3.h>

namespace {
// From the stored UTF-8 itself: SQLite's own UTF-16 form (what Qt's driver
// reads) costs a conversion byte by byte and a buffer inside SQLite, a quarter
// of the reader's time. An ASCII text, nearly every one, is widened directly.
// The room a conversion may leave does not last: what is kept is copied on the
// caller's thread.
QString ColumnText(sqlite3_stmt* statement, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    const int size = sqlite3_column_bytes(statement, column);
    for (int i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(text[i]) >= 0x80) {
            return QString::fromUtf8(text, size);
        }
    }
    return QString::fromLatin1(text, size);
}

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
            row.append(QVariant(ColumnText(statement, column)));
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
        ReadRow(statement, values);
        Row row;
        row.attribute = std::make_unique<TriggerAttribute>();
        row.fault = TriggerRow::Read(values, row.planUuid, *row.attribute);
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
