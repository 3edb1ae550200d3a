#pragma once

#include <QString>
#include <QVector>

#include <initializer_list>

struct sqlite3;
struct sqlite3_stmt;

// Rows for one INSERT statement, kept until there are enough to write many
// with one step. A single-row INSERT spends most of its time opening and
// closing its cursors rather than in the tables: 64 rows to a statement write
// three times as fast. Rows reach the table in the order they were added; the
// owner writes what is left before any other statement on the same tables.
class RowBuffer {
public:
    static constexpr int kRowsPerStatement = 64;

    // A column's value: NULL, a number or a text.
    struct Value {
        enum class Kind { Null, Number, Text };
        Kind kind = Kind::Null;
        qint64 number = 0;
        QString text;

        Value() = default;
        Value(qint64 n) : kind(Kind::Number), number(n) {}     // NOLINT: a number is a value
        Value(const QString& t) : kind(Kind::Text), text(t) {} // NOLINT: so is a text
    };

    // `head` is the statement up to VALUES, `tail` what follows the rows
    // (an ON CONFLICT clause, or nothing).
    RowBuffer(const char* head, int columns, const char* tail);
    ~RowBuffer();
    RowBuffer(const RowBuffer&) = delete;
    RowBuffer& operator=(const RowBuffer&) = delete;

    void Attach(sqlite3* handle);
    void Detach();
    // False when a full batch of rows could not be written.
    bool Add(std::initializer_list<Value> row);
    bool Write();
    // Drops the rows not yet written (after a rollback).
    void Forget() { m_values.clear(); }

private:
    sqlite3_stmt* Prepared(int rows);
    bool Step(sqlite3_stmt* statement, int firstValue, int values);

    QString m_head;
    QString m_tail;
    int m_columns;
    sqlite3* m_handle = nullptr;
    sqlite3_stmt* m_single = nullptr;
    sqlite3_stmt* m_many = nullptr;
    QVector<Value> m_values;
};
