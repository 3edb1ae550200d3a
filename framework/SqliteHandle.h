#pragma once

class QString;
struct sqlite3;

// The raw SQLite handle under a Qt SQL connection, for the reads and writes
// that are large enough for Qt SQL's value conversions to matter. The
// connection stays Qt's: it is made and removed on its own thread.
class SqliteHandle {
public:
    // Null when there is no such connection or it is not SQLite's.
    static sqlite3* Of(const QString& connectionName);
};
