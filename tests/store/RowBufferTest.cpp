#include "store/RowBuffer.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>

namespace {
struct Closer {
    void operator()(sqlite3* handle) const { sqlite3_close(handle); }
};
using Handle = std::unique_ptr<sqlite3, Closer>;

Handle Memory() {
    sqlite3* handle = nullptr;
    sqlite3_open(":memory:", &handle);
    sqlite3_exec(handle, "CREATE TABLE t (k INTEGER PRIMARY KEY, n INTEGER, s TEXT)", nullptr, nullptr,
                 nullptr);
    return Handle(handle);
}

qint64 Number(sqlite3* handle, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr);
    const qint64 value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
    sqlite3_finalize(statement);
    return value;
}
} // namespace

// Every row lands once, whether it went in a full statement or one of the
// rest, and a later row of the same key wins as it would one by one.
TEST(RowBuffer, WritesEveryRowInOrderAcrossFullStatementsAndTheRest) {
    for (const int rows : {0, 1, RowBuffer::kRowsPerStatement - 1, RowBuffer::kRowsPerStatement,
                           RowBuffer::kRowsPerStatement * 2 + 3}) {
        SCOPED_TRACE(rows);
        const Handle handle = Memory();
        RowBuffer buffer("INSERT INTO t (k, n, s)", 3, "ON CONFLICT(k) DO UPDATE SET n = excluded.n");
        buffer.Attach(handle.get());
        qint64 lastOfEachKey = 0;
        for (int i = 0; i < rows; ++i) {
            ASSERT_TRUE(
                buffer.Add({i / 2, i, i % 4 == 0 ? RowBuffer::Value() : RowBuffer::Value(QString("x"))}));
            lastOfEachKey += (i % 2 == 1 || i == rows - 1) ? i : 0;
        }
        ASSERT_TRUE(buffer.Write());
        EXPECT_EQ(Number(handle.get(), "SELECT count(*) FROM t"), (rows + 1) / 2);
        EXPECT_EQ(Number(handle.get(), "SELECT coalesce(sum(n), 0) FROM t"), lastOfEachKey);
        EXPECT_EQ(Number(handle.get(), "SELECT count(*) FROM t WHERE s IS NULL"), (rows + 3) / 4);
    }
}

// Rows of a transaction that was rolled back are not written with the next.
TEST(RowBuffer, ForgetsWhatWasNotWritten) {
    const Handle handle = Memory();
    RowBuffer buffer("INSERT INTO t (k, n, s)", 3, "");
    buffer.Attach(handle.get());
    ASSERT_TRUE(buffer.Add({1, 1, QString("gone")}));
    buffer.Forget();
    ASSERT_TRUE(buffer.Add({2, 2, QString("kept")}));
    ASSERT_TRUE(buffer.Write());
    EXPECT_EQ(Number(handle.get(), "SELECT count(*) FROM t WHERE s = 'kept'"), 1);
    EXPECT_EQ(Number(handle.get(), "SELECT count(*) FROM t"), 1);
}

// A failed write says so, and leaves nothing behind for the next.
TEST(RowBuffer, ReportsAFailedWrite) {
    const Handle handle = Memory();
    RowBuffer buffer("INSERT INTO t (k, n, s)", 3, "");
    buffer.Attach(handle.get());
    ASSERT_TRUE(buffer.Add({1, 1, QString("a")}));
    ASSERT_TRUE(buffer.Add({1, 2, QString("b")}));
    EXPECT_FALSE(buffer.Write());
    EXPECT_TRUE(buffer.Write());
}
