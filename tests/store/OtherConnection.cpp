#include "OtherConnection.h"

#include <QSqlDatabase>
#include <QSqlQuery>

#include <gtest/gtest.h>

namespace {
constexpr const char* kName = "other";
} // namespace

OtherConnection::OtherConnection(const QString& path) {
    QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", kName);
    db.setDatabaseName(path);
    EXPECT_TRUE(db.open());
}

OtherConnection::~OtherConnection() {
    Exec("ROLLBACK");
    QSqlDatabase::database(kName, false).close();
    QSqlDatabase::removeDatabase(kName);
}

bool OtherConnection::Exec(const QString& statement) {
    QSqlQuery query(QSqlDatabase::database(kName, false));
    return query.exec(statement);
}
