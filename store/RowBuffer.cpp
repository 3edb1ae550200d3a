#include "RowBuffer.h"

#include <sqlite3.h>

RowBuffer::RowBuffer(const char* head, int columns, const char* tail)
    : m_head(QString::fromLatin1(head)), m_tail(QString::fromLatin1(tail)), m_columns(columns) {}

RowBuffer::~RowBuffer() {
    Detach();
}

void RowBuffer::Attach(sqlite3* handle) {
    Detach();
    m_handle = handle;
}

void RowBuffer::Detach() {
    sqlite3_finalize(m_single);
    sqlite3_finalize(m_many);
    m_single = nullptr;
    m_many = nullptr;
    m_handle = nullptr;
    m_values.clear();
}

sqlite3_stmt* RowBuffer::Prepared(int rows) {
    sqlite3_stmt*& statement = rows == 1 ? m_single : m_many;
    if (statement != nullptr || m_handle == nullptr) {
        return statement;
    }
    const QString row = "(?" + QString(",?").repeated(m_columns - 1) + ")";
    const QString sql = m_head + " VALUES " + row + QString("," + row).repeated(rows - 1) + " " + m_tail;
    if (sqlite3_prepare_v2(m_handle, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        statement = nullptr;
    }
    return statement;
}

bool RowBuffer::Add(std::initializer_list<Value> row) {
    m_values.append(row);
    if (m_values.size() < kRowsPerStatement * m_columns) {
        return true;
    }
    return Write();
}

bool RowBuffer::Write() {
    const int values = m_values.size();
    int first = 0;
    bool ok = true;
    for (; ok && values - first >= kRowsPerStatement * m_columns; first += kRowsPerStatement * m_columns) {
        ok = Step(Prepared(kRowsPerStatement), first, kRowsPerStatement * m_columns);
    }
    for (; ok && first < values; first += m_columns) {
        ok = Step(Prepared(1), first, m_columns);
    }
    m_values.clear();
    return ok;
}

bool RowBuffer::Step(sqlite3_stmt* statement, int firstValue, int values) {
    if (statement == nullptr) {
        return false;
    }
    for (int i = 0; i < values; ++i) {
        const Value& value = m_values.at(firstValue + i);
        if (value.kind == Value::Kind::Number) {
            sqlite3_bind_int64(statement, i + 1, value.number);
        } else if (value.kind == Value::Kind::Text) {
            // The text outlives the step that reads it.
            sqlite3_bind_text16(statement, i + 1, value.text.utf16(), value.text.size() * 2, SQLITE_STATIC);
        }
    }
    const int status = sqlite3_step(statement);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return status == SQLITE_DONE;
}
