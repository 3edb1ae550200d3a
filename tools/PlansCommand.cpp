#include "PlansCommand.h"

#include "ArgumentList.h"
#include "ServiceEndpoint.h"
#include "ToolOutput.h"

#include <QFile>

#include <sqlite3.h>

namespace {
// Read-only and without Qt's driver: completion asks on every Tab.
bool ReadPlans(const QString& path, const QString& prefix, QString& out, QString& error) {
    sqlite3* handle = nullptr;
    sqlite3_stmt* query = nullptr;
    bool ok =
        QFile::exists(path) &&
        sqlite3_open_v2(path.toUtf8().constData(), &handle, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(handle,
                           "SELECT plan_uuid FROM triggers WHERE substr(plan_uuid, 1, length(?1)) = ?1 "
                           "ORDER BY plan_uuid",
                           -1, &query, nullptr) == SQLITE_OK;
    if (ok) {
        const QByteArray head = prefix.toUtf8();
        sqlite3_bind_text(query, 1, head.constData(), head.size(), SQLITE_TRANSIENT);
        while (sqlite3_step(query) == SQLITE_ROW) {
            out += QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(query, 0))) + '\n';
        }
    }
    error = handle != nullptr ? QString::fromUtf8(sqlite3_errmsg(handle)) : QString("no such file");
    sqlite3_finalize(query);
    sqlite3_close(handle);
    return ok;
}
} // namespace

QString PlansCommand::Help() {
    return "Usage: orvelctl plans [--prefix TEXT] [--db PATH]\n"
           "Prints the UUID of every plan in the service's database, one a line, sorted.\n\n"
           "  --prefix TEXT       only plans whose UUID begins with TEXT\n"
           "  --db PATH           the database file (default: data/alldb.db beside orvelctl)\n";
}

int PlansCommand::Run(const QStringList& arguments) {
    ArgumentList parsed;
    const int done = parsed.Read(arguments, "plans", Help(), {"--prefix", "--db"});
    if (done != ArgumentList::kGoOn) {
        return done;
    }
    const QString path = parsed.Value("--db", ServiceEndpoint::DatabasePath());
    QString out;
    QString error;
    if (!ReadPlans(path, parsed.Value("--prefix"), out, error)) {
        return ToolOutput::Fail(QString("orvelctl plans: cannot read the database %1: %2").arg(path, error),
                                1);
    }
    return ToolOutput::Out(out, 0);
}
