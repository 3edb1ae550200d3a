#include "RunStateFile.h"

#include "framework/Clock.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/Logger.h"
#include "framework/SqliteHandle.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace {
// Times of day are the service's own texts ("yyyy-MM-dd hh:mm:ss", local
// time), so that a row reads as the log does; moments are milliseconds since
// the epoch. An empty next_start means no further start. WITHOUT ROWID keeps
// the plan UUID once per row instead of in the table and again in its index.
constexpr const char* kCreateRuns = "CREATE TABLE IF NOT EXISTS runs ("
                                    "plan_uuid TEXT PRIMARY KEY NOT NULL,"
                                    "trigger_type INTEGER,"
                                    "next_start TEXT,"
                                    "end_flag INTEGER,"
                                    "last_due TEXT,"
                                    "last_handed INTEGER,"
                                    "result INTEGER,"
                                    "result_at INTEGER,"
                                    "next_ms INTEGER,"
                                    "next_offset INTEGER,"
                                    "repeat_count INTEGER,"
                                    "start_offset INTEGER,"
                                    "first_seek INTEGER,"
                                    "filled_start TEXT,"
                                    "fingerprint INTEGER) WITHOUT ROWID";
// The columns the schema's second version added, for a file of the first.
constexpr const char* kAddedColumns[] = {
    "next_ms INTEGER",    "next_offset INTEGER", "repeat_count INTEGER", "start_offset INTEGER",
    "first_seek INTEGER", "filled_start TEXT",   "fingerprint INTEGER"};
constexpr const char* kAllColumns =
    "plan_uuid, trigger_type, next_start, end_flag, last_due, last_handed, result, "
    "result_at, next_ms, next_offset, repeat_count, start_offset, first_seek, "
    "filled_start, fingerprint";
constexpr const char* kCreateMeta =
    "CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY NOT NULL, value) WITHOUT ROWID";

QString ProblemOf(const QSqlQuery& query, const QString& otherwise) {
    return query.lastError().isValid() ? query.lastError().text() : otherwise;
}

RunStateFile::StoredRun StoredRunOf(const QSqlQuery& query) {
    RunStateFile::StoredRun run;
    run.lastDue = query.value(1).toString();
    run.nextStart = query.value(2).toString();
    run.schedule = RunStateRecorder::Schedule{run.nextStart,
                                              query.value(4).toLongLong(),
                                              query.value(5).toInt(),
                                              query.value(3).toULongLong(),
                                              query.value(6).toULongLong(),
                                              query.value(7).toULongLong(),
                                              query.value(8).toULongLong(),
                                              query.value(9).toString(),
                                              query.value(10).toULongLong()};
    return run;
}
} // namespace

// Named after the object, which closes its connection before it goes: no two
// live files share a name.
RunStateFile::RunStateFile()
    : m_connectionName(QString("orvel-state-%1").arg(reinterpret_cast<quintptr>(this), 0, 16)) {}

RunStateFile::~RunStateFile() {
    Close();
}

bool RunStateFile::Open(const QString& path) {
    Close();
    m_path = path;
    QString problem;
    if (!QFile::exists(path)) {
        Logger::Warn(QString("The run state file %1 is missing; a fresh one is started.").arg(path));
    } else if (!OpenFile(problem)) {
        Close();
        const QString aside = SetAside();
        if (aside.isEmpty()) {
            Logger::Error(QString("The run state file %1 cannot be used (%2) nor set aside; the service runs "
                                  "without run state.")
                              .arg(path, problem));
            return false;
        }
        Logger::Warn(QString("The run state file %1 cannot be used (%2); it is kept as %3 and a fresh one is "
                             "started.")
                         .arg(path, problem, aside));
    }
    if (!m_open && !OpenFile(problem)) {
        Close();
        Logger::Error(QString("The run state file %1 cannot be created (%2); the service runs without run "
                              "state.")
                          .arg(path, problem));
        return false;
    }
    return true;
}

// Nothing is written to a file before it has proved to be a state file, so
// that a file set aside keeps the bytes it was found with.
bool RunStateFile::OpenFile(QString& problem) {
    Close();
    QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_connectionName);
    db.setDatabaseName(m_path);
    db.setConnectOptions("QSQLITE_BUSY_TIMEOUT=1000");
    m_open = true;
    if (!db.open()) {
        problem = db.lastError().text();
        return false;
    }
    QSqlQuery query(db);
    if (!query.exec("PRAGMA quick_check") || !query.next() || query.value(0).toString() != "ok") {
        problem = ProblemOf(query, query.value(0).toString());
        return false;
    }
    if (!EnsureSchema(problem)) {
        return false;
    }
    // In WAL mode NORMAL loses no committed transaction when the process dies,
    // only on a power cut, and spares a disk flush per batch.
    if (!query.exec("PRAGMA journal_mode = WAL") || !query.next() ||
        query.value(0).toString().compare("wal", Qt::CaseInsensitive) != 0 ||
        !query.exec("PRAGMA synchronous = NORMAL")) {
        problem = ProblemOf(query, "no write-ahead log");
        return false;
    }
    return true;
}

bool RunStateFile::EnsureSchema(QString& problem) {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    if (!query.exec("PRAGMA user_version") || !query.next()) {
        problem = query.lastError().text();
        return false;
    }
    const int version = query.value(0).toInt();
    if (version == 1 && !Migrate(problem)) {
        return false;
    }
    if (version == kSchemaVersion || version == 1) {
        if (!query.exec(QString("SELECT %1 FROM runs LIMIT 1").arg(kAllColumns)) ||
            !query.exec("SELECT key, value FROM meta LIMIT 1")) {
            problem = query.lastError().text();
            return false;
        }
        return true;
    }
    if (version != 0 || !query.exec("SELECT count(*) FROM sqlite_master") || !query.next() ||
        query.value(0).toInt() != 0) {
        problem = version != 0 ? QString("schema version %1").arg(version) : QString("not a run state file");
        return false;
    }
    if (!query.exec(kCreateRuns) || !query.exec(kCreateMeta) ||
        !query.exec(QString("PRAGMA user_version = %1").arg(kSchemaVersion))) {
        problem = query.lastError().text();
        return false;
    }
    return true;
}

// A file of the first version gains the columns in place, in one transaction:
// its rows keep what they had and resume nothing, since they carry no
// fingerprint, so their plans get a first computation once more.
bool RunStateFile::Migrate(QString& problem) {
    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    QSqlQuery query(db);
    bool ok = db.transaction();
    for (const char* column : kAddedColumns) {
        ok = ok && query.exec(QString("ALTER TABLE runs ADD COLUMN %1").arg(column));
    }
    ok = ok && query.exec(QString("PRAGMA user_version = %1").arg(kSchemaVersion)) && db.commit();
    if (!ok) {
        problem = ProblemOf(query, db.lastError().text());
        db.rollback();
    }
    return ok;
}

// The file and its journal files move together; a journal left beside a fresh
// file could otherwise be taken for the fresh file's own.
QString RunStateFile::SetAside() {
    const QString stamp = Clock::now().toString("yyyyMMddhhmmss");
    QString aside = QString("%1.bad-%2").arg(m_path, stamp);
    for (int n = 1; QFile::exists(aside); ++n) {
        aside = QString("%1.bad-%2-%3").arg(m_path, stamp).arg(n);
    }
    if (!QFile::rename(m_path, aside)) {
        return QString();
    }
    for (const char* suffix : {"-wal", "-shm"}) {
        if (QFile::exists(m_path + suffix)) {
            QFile::rename(m_path + suffix, aside + suffix);
        }
    }
    return aside;
}

void RunStateFile::Close() {
    if (!m_open) {
        return;
    }
    DatabaseFunctionOperation::CloseConnection(m_connectionName);
    m_open = false;
}

QHash<QString, RunStateFile::StoredRun> RunStateFile::LoadAndPrune(const IsLivePlan& isLive) {
    QHash<QString, StoredRun> runs;
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    query.setForwardOnly(true);
    if (!query.exec("SELECT plan_uuid, last_due, next_start, end_flag, next_ms, next_offset, repeat_count, "
                    "start_offset, first_seek, filled_start, fingerprint FROM runs")) {
        Logger::Warn(QString("The run state file %1 cannot be read (%2); its plans get a first computation.")
                         .arg(m_path, query.lastError().text()));
        return runs;
    }
    QStringList gone;
    while (query.next()) {
        const QString planUuid = query.value(0).toString();
        if (isLive && isLive(planUuid)) {
            runs.insert(planUuid, StoredRunOf(query));
        } else {
            gone << planUuid;
        }
    }
    query.finish();
    Prune(gone);
    return runs;
}

// The rows of deleted plans go in one transaction; when that fails they stay,
// and are tried again at the next start.
bool RunStateFile::Prune(const QStringList& gone) {
    if (gone.isEmpty()) {
        return true;
    }
    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    QSqlQuery query(db);
    bool ok = db.transaction() && query.prepare("DELETE FROM runs WHERE plan_uuid = ?");
    for (auto plan = gone.cbegin(); ok && plan != gone.cend(); ++plan) {
        query.addBindValue(*plan);
        ok = query.exec();
    }
    if (ok && db.commit()) {
        return true;
    }
    Logger::Warn(QString("The rows of %1 deleted plans cannot be removed from the run state file %2 (%3).")
                     .arg(gone.size())
                     .arg(m_path, ProblemOf(query, db.lastError().text())));
    db.rollback();
    return false;
}

// Qt ties a connection to the thread that made it, and the checks, the
// set-aside and the pruning are plainer through Qt SQL. So the connection
// stays Qt's, made and removed on the thread that opens the file, and the
// batch writer uses only its raw handle, by one thread at a time; SQLite lets
// a connection move between threads so.
sqlite3* RunStateFile::Handle() const {
    if (!m_open) {
        return nullptr;
    }
    return SqliteHandle::Of(m_connectionName);
}
