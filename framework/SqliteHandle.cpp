#include "SqliteHandle.h"

#include <QSqlDatabase>
#include <QSqlDriver>
#include <QVariant>

sqlite3* SqliteHandle::Of(const QString& connectionName) {
    const QSqlDatabase db = QSqlDatabase::database(connectionName, false);
    const QVariant handle = db.driver() != nullptr ? db.driver()->handle() : QVariant();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0) {
        return nullptr;
    }
    return *static_cast<sqlite3* const*>(handle.constData());
}
