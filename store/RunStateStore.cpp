#include "RunStateStore.h"

#include "framework/Clock.h"
#include "framework/ConfigReader.h"
#include "framework/DatabaseFunctionOperation.h"
#include "framework/Logger.h"
#include "platform/SignalStack.h"
#include "triggers/LocalTime.h"
#include "triggers/TriggerObject.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <pthread.h>
#include <sqlite3.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <vector>

// What a change leaves empty keeps its stored value.
struct RunStateStore::Update {
    struct Run {
        QString due;
        qint64 handedMSecs;
    };
    struct Result {
        quint64 code;
        qint64 atMSecs;
    };

    bool removeFirst = false;
    quint64 triggerType = 0; // with a run or a schedule
    std::optional<Run> run;
    std::optional<RunStateStore::Schedule> schedule;
    std::optional<Result> result;
    QVector<RunHistory::Event> history;
};

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
// A column a change does not touch is bound as NULL and keeps its value.
constexpr const char* kUpsert =
    "INSERT INTO runs (plan_uuid, trigger_type, next_start, end_flag, last_due, last_handed, result, "
    "result_at, next_ms, next_offset, repeat_count, start_offset, first_seek, filled_start, fingerprint) "
    "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT(plan_uuid) DO UPDATE SET "
    "trigger_type = coalesce(excluded.trigger_type, trigger_type),"
    "next_start = coalesce(excluded.next_start, next_start),"
    "end_flag = coalesce(excluded.end_flag, end_flag),"
    "last_due = coalesce(excluded.last_due, last_due),"
    "last_handed = coalesce(excluded.last_handed, last_handed),"
    "result = coalesce(excluded.result, result),"
    "result_at = coalesce(excluded.result_at, result_at),"
    "next_ms = coalesce(excluded.next_ms, next_ms),"
    "next_offset = coalesce(excluded.next_offset, next_offset),"
    "repeat_count = coalesce(excluded.repeat_count, repeat_count),"
    "start_offset = coalesce(excluded.start_offset, start_offset),"
    "first_seek = coalesce(excluded.first_seek, first_seek),"
    "filled_start = coalesce(excluded.filled_start, filled_start),"
    "fingerprint = coalesce(excluded.fingerprint, fingerprint)";

std::atomic<int> g_connectionSequence{0};

// The open store and the changes not yet written, shared by every thread that
// records and by the open store's writer thread, which waits on this lock.
std::mutex g_mutex;
RunStateStore* g_current = nullptr;
// The changes in the order they were recorded, merged per plan only when
// they are written. Kept in one block rather than a node per plan: a start-up
// holds a change for every plan until its pass ends, and nodes freed among the
// strings made meanwhile would leave the heap too holed to give back.
using Change = std::pair<QString, RunStateStore::Update>;
std::vector<Change> g_changes;
std::chrono::steady_clock::time_point g_firstChange;
bool g_held = false;

// A later change of the same plan on top of the earlier ones.
void Apply(RunStateStore::Update& u, const RunStateStore::Update& change) {
    if (change.removeFirst) {
        const QVector<RunHistory::Event> before = u.history;
        u = change;
        u.history = before + change.history;
        return;
    }
    u.history += change.history;
    if (change.run || change.schedule) {
        u.triggerType = change.triggerType;
    }
    if (change.run) {
        u.run = change.run;
    }
    if (change.schedule) {
        u.schedule = change.schedule;
    }
    if (change.result) {
        u.result = change.result;
    }
}

// The connection's own SQLite handle: a batch of a hundred thousand rows
// through QSqlQuery costs several microseconds a row in value conversions,
// through the handle about one.
sqlite3* Handle(const QSqlDatabase& db) {
    const QVariant handle = db.driver() != nullptr ? db.driver()->handle() : QVariant();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0) {
        return nullptr;
    }
    return *static_cast<sqlite3* const*>(handle.constData());
}
} // namespace

RunStateStore::RunStateStore(QObject* parent)
    : QObject(parent), m_connectionName(QString("orvel-state-%1").arg(++g_connectionSequence)) {}

RunStateStore::~RunStateStore() {
    Close();
}

bool RunStateStore::Open(const QString& path, const QSet<QString>& livePlans) {
    Close();
    m_path = path;
    QString problem;
    if (!QFile::exists(path)) {
        Logger::Warn(QString("The run state file %1 is missing; a fresh one is started.").arg(path));
    } else if (!OpenFile(problem)) {
        CloseConnection();
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
        CloseConnection();
        Logger::Error(QString("The run state file %1 cannot be created (%2); the service runs without run "
                              "state.")
                          .arg(path, problem));
        return false;
    }
    LoadAndPrune(livePlans);
    // Qt ties a connection to the thread that made it, and the checks, the
    // set-aside and the pruning above are plainer through Qt SQL. So the
    // connection stays Qt's, made and removed on this thread, and from here
    // until Close only its raw handle is used, by one thread at a time under
    // m_writeMutex; SQLite lets a connection move between threads so.
    m_handle = Handle(QSqlDatabase::database(m_connectionName, false));
    if (m_handle != nullptr && !m_history.Prepare(m_handle, {ConfigReader::getHistoryKeepPerPlan(),
                                                             ConfigReader::getHistoryKeepDays()})) {
        Logger::Warn(QString("The run history in %1 cannot be kept (%2).")
                         .arg(path, QString::fromUtf8(sqlite3_errmsg(m_handle))));
    }
    LoadHealth();
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_current = this;
        g_changes.clear();
        m_stopping = false;
    }
    m_writer = std::thread([this] { RunWriter(); });
    return true;
}

// Nothing is written to a file before it has proved to be a state file, so
// that a file set aside keeps the bytes it was found with.
bool RunStateStore::OpenFile(QString& problem) {
    CloseConnection();
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
        problem = query.lastError().isValid() ? query.lastError().text() : query.value(0).toString();
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
        problem = query.lastError().isValid() ? query.lastError().text() : QString("no write-ahead log");
        return false;
    }
    return true;
}

bool RunStateStore::EnsureSchema(QString& problem) {
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    if (!query.exec("PRAGMA user_version") || !query.next()) {
        problem = query.lastError().text();
        return false;
    }
    const int version = query.value(0).toInt();
    if (version == 1 && !Migrate(version, problem)) {
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
bool RunStateStore::Migrate(int version, QString& problem) {
    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    QSqlQuery query(db);
    bool ok = version == 1 && db.transaction();
    for (const char* column : kAddedColumns) {
        ok = ok && query.exec(QString("ALTER TABLE runs ADD COLUMN %1").arg(column));
    }
    ok = ok && query.exec(QString("PRAGMA user_version = %1").arg(kSchemaVersion)) && db.commit();
    if (!ok) {
        problem = query.lastError().isValid() ? query.lastError().text() : db.lastError().text();
        db.rollback();
    }
    return ok;
}

// The file and its journal files move together; a journal left beside a fresh
// file could otherwise be taken for the fresh file's own.
QString RunStateStore::SetAside() {
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

void RunStateStore::CloseConnection() {
    m_history.Detach();
    m_handle = nullptr;
    if (!m_open) {
        return;
    }
    DatabaseFunctionOperation::CloseConnection(m_connectionName);
    m_open = false;
}

bool RunStateStore::LoadAndPrune(const QSet<QString>& livePlans) {
    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (!query.exec("SELECT plan_uuid, last_due, next_start, end_flag, next_ms, next_offset, repeat_count, "
                    "start_offset, first_seek, filled_start, fingerprint FROM runs")) {
        return false;
    }
    QStringList gone;
    Summary summary;
    while (query.next()) {
        const QString planUuid = query.value(0).toString();
        if (!livePlans.contains(planUuid)) {
            gone << planUuid;
            continue;
        }
        StoredRun run;
        run.lastDue = query.value(1).toString();
        run.nextStart = query.value(2).toString();
        run.schedule = Schedule{run.nextStart,
                                query.value(4).toLongLong(),
                                query.value(5).toInt(),
                                query.value(3).toULongLong(),
                                query.value(6).toULongLong(),
                                query.value(7).toULongLong(),
                                query.value(8).toULongLong(),
                                query.value(9).toString(),
                                query.value(10).toULongLong()};
        m_storedRuns.insert(planUuid, run);
        if (!run.nextStart.isEmpty() && (summary.nextStart.isEmpty() || run.nextStart < summary.nextStart)) {
            summary = Summary{planUuid, run.nextStart};
        }
    }
    query.finish();
    Publish(summary);
    if (gone.isEmpty()) {
        return true;
    }
    db.transaction();
    query.prepare("DELETE FROM runs WHERE plan_uuid = ?");
    for (const QString& planUuid : qAsConst(gone)) {
        query.addBindValue(planUuid);
        query.exec();
    }
    return db.commit();
}

QHash<QString, RunStateStore::StoredRun> RunStateStore::TakeStoredRuns() {
    QHash<QString, StoredRun> runs;
    runs.swap(m_storedRuns);
    return runs;
}

namespace {
// A row the service wrote itself after a computation: a later start, or the
// end. Anything else (a row of an older file, one changed by hand) is damaged.
bool Resumable(const RunStateStore::Schedule& kept, const TriggerObject& object) {
    if (kept.fingerprint == 0 || kept.fingerprint != object.getDefinitionFingerprint() ||
        kept.firstSeekDone != 1) {
        return false;
    }
    if (kept.endFlag != 0) {
        return true;
    }
    const QDateTime next = LocalTime::Parse(kept.nextStart);
    return kept.nextStartMSecs > 0 && next.isValid() &&
           qAbs(next.toMSecsSinceEpoch() - kept.nextStartMSecs) <= 86400000;
}

void ResumeObject(const RunStateStore::Schedule& kept, TriggerObject& object) {
    TriggerAttribute& attribute = object.getObjectTriggerAttribute();
    if (attribute.getStartTime().isEmpty() && !kept.filledStart.isEmpty()) {
        attribute.setStartTime(kept.filledStart);
        object.setFilledStartTime(kept.filledStart);
    }
    attribute.setTriggerEndFlag(kept.endFlag);
    object.setFirstSeekDone(kept.firstSeekDone);
    object.setRepeatCount(kept.repeatCount);
    object.setStartOffsetSecs(kept.startOffsetSecs);
    if (kept.endFlag == 0) {
        object.setNextStart(kept.nextStart, kept.nextStartMSecs, kept.nextStartOffsetSecs);
    }
}
} // namespace

RunStateStore::Schedule RunStateStore::ScheduleOf(const TriggerObject& object) {
    Schedule schedule;
    schedule.endFlag = object.getTriggerAttribute().getTriggerEndFlag();
    if (schedule.endFlag == 0) {
        schedule.nextStart = object.getNextStartTime();
        schedule.nextStartMSecs = object.getNextStartMSecs();
        schedule.nextStartOffsetSecs = object.getNextStartOffsetSecs();
    }
    schedule.repeatCount = object.getRepeatCount();
    schedule.startOffsetSecs = object.getStartOffsetSecs();
    schedule.firstSeekDone = object.getFirstSeekDone();
    schedule.filledStart = object.getFilledStartTime();
    schedule.fingerprint = object.getDefinitionFingerprint();
    return schedule;
}

int RunStateStore::Resume(const QHash<QString, TriggerObject*>& registry) {
    int resumed = 0;
    for (auto it = m_storedRuns.begin(); it != m_storedRuns.end(); ++it) {
        TriggerObject* object = registry.value(it.key(), nullptr);
        if (object == nullptr || !Resumable(it->schedule, *object)) {
            continue;
        }
        ResumeObject(it->schedule, *object);
        it->resumed = true;
        ++resumed;
    }
    return resumed;
}

RunStateStore::Summary RunStateStore::LastSummary() const {
    std::lock_guard<std::mutex> lock(m_summaryMutex);
    return m_summary;
}

void RunStateStore::Publish(const Summary& summary) {
    std::lock_guard<std::mutex> lock(m_summaryMutex);
    m_summary = summary;
}

// What was recorded before recording stopped is written here, after the
// writer has ended, so that nothing is left between the two.
void RunStateStore::Close() {
    std::vector<Change> last;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_current == this) {
            g_current = nullptr;
            last.swap(g_changes);
        }
        m_stopping = true;
    }
    m_wake.notify_all();
    if (m_writer.joinable()) {
        m_writer.join();
    }
    {
        std::lock_guard<std::mutex> writing(m_writeMutex);
        WriteTaken(Merged(last));
        m_unwritten.clear();
    }
    CloseConnection();
}

bool RunStateStore::Flush() {
    std::lock_guard<std::mutex> writing(m_writeMutex);
    std::vector<Change> changes;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_current == this) {
            changes.swap(g_changes);
        }
    }
    return WriteTaken(Merged(changes));
}

// Waits for a batch's first change, then for kBatchMSecs or Close, whichever
// comes first, and writes the batch under way.
void RunStateStore::RunWriter() {
    SignalStack stack;
    ::pthread_setname_np(::pthread_self(), "state-writer");
    std::unique_lock<std::mutex> lock(g_mutex);
    while (!m_stopping) {
        if (g_current != this || g_changes.empty() || g_held) {
            m_wake.wait(lock);
            continue;
        }
        const auto due = g_firstChange + std::chrono::milliseconds(kBatchMSecs);
        if (m_wake.wait_until(lock, due, [this] { return m_stopping; })) {
            return;
        }
        const size_t rows = g_changes.size();
        lock.unlock();
        Flush();
        // A batch as large as a start-up's leaves its pages resident for good
        // unless the heap is asked to give them back.
        if (rows >= kTrimRows) {
            malloc_trim(0);
        }
        lock.lock();
    }
}

// The caller holds m_writeMutex.
//
// A batch that could not be written goes under the next one, so that a
// passing failure (a full disk, another program writing the file) loses no
// run. It is tried again with the next batch, Flush or Close, never in a loop
// of its own.
bool RunStateStore::WriteTaken(const QHash<QString, Update>& taken) {
    Observe(taken);
    if ((taken.isEmpty() && m_unwritten.isEmpty()) || m_handle == nullptr) {
        return m_lastWriteOk;
    }
    QHash<QString, Update> batch = taken;
    if (!m_unwritten.isEmpty()) {
        batch.swap(m_unwritten);
        for (auto it = taken.constBegin(); it != taken.constEnd(); ++it) {
            Apply(batch[it.key()], it.value());
        }
    }
    m_lastWriteOk = WriteBatch(batch);
    if (!m_lastWriteOk) {
        m_unwritten.swap(batch);
        m_unwrittenCount = static_cast<quint64>(m_unwritten.size());
        return false;
    }
    m_unwrittenCount = 0;
    RefreshSummary(batch);
    return true;
}

namespace {
struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

Statement Prepare(sqlite3* handle, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr);
    return Statement(statement);
}

void BindText(sqlite3_stmt* statement, int index, const QString& text) {
    // The text outlives the step that reads it.
    sqlite3_bind_text16(statement, index, text.utf16(), text.size() * 2, SQLITE_STATIC);
}

QString ColumnText(sqlite3_stmt* statement, int column) {
    const auto* text = static_cast<const QChar*>(sqlite3_column_text16(statement, column));
    return QString(text, sqlite3_column_bytes16(statement, column) / 2);
}

RunStateStore::Summary EarliestStart(sqlite3* handle) {
    const Statement earliest =
        Prepare(handle, "SELECT plan_uuid, min(next_start) FROM runs WHERE next_start > ''");
    if (!earliest || sqlite3_step(earliest.get()) != SQLITE_ROW) {
        return RunStateStore::Summary{};
    }
    return RunStateStore::Summary{ColumnText(earliest.get(), 0), ColumnText(earliest.get(), 1)};
}

bool Step(sqlite3_stmt* statement) {
    const int status = sqlite3_step(statement);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return status == SQLITE_DONE;
}

bool WriteUpdate(sqlite3_stmt* upsert, sqlite3_stmt* remove, const QString& planUuid,
                 const RunStateStore::Update& u) {
    if (u.removeFirst) {
        BindText(remove, 1, planUuid);
        if (!Step(remove)) {
            return false;
        }
    }
    if (!(u.run || u.schedule || u.result)) {
        return true;
    }
    // A column left unbound is NULL (Step clears the bindings) and keeps its
    // stored value.
    BindText(upsert, 1, planUuid);
    if (u.run || u.schedule) {
        sqlite3_bind_int64(upsert, 2, static_cast<qint64>(u.triggerType));
    }
    if (u.schedule) {
        const RunStateStore::Schedule& kept = *u.schedule;
        BindText(upsert, 3, kept.nextStart);
        sqlite3_bind_int64(upsert, 4, static_cast<qint64>(kept.endFlag));
        sqlite3_bind_int64(upsert, 9, kept.nextStartMSecs);
        sqlite3_bind_int(upsert, 10, kept.nextStartOffsetSecs);
        sqlite3_bind_int64(upsert, 11, static_cast<qint64>(kept.repeatCount));
        sqlite3_bind_int64(upsert, 12, static_cast<qint64>(kept.startOffsetSecs));
        sqlite3_bind_int64(upsert, 13, static_cast<qint64>(kept.firstSeekDone));
        BindText(upsert, 14, kept.filledStart);
        sqlite3_bind_int64(upsert, 15, static_cast<qint64>(kept.fingerprint));
    }
    if (u.run) {
        BindText(upsert, 5, u.run->due);
        sqlite3_bind_int64(upsert, 6, u.run->handedMSecs);
    }
    if (u.result) {
        sqlite3_bind_int64(upsert, 7, static_cast<qint64>(u.result->code));
        sqlite3_bind_int64(upsert, 8, u.result->atMSecs);
    }
    return Step(upsert);
}
} // namespace

namespace {
// A row of a batch with the first eight code units of its plan UUID packed
// into two numbers: most comparisons of the sort end there, without reaching
// for the text itself.
struct BatchRow {
    quint64 head = 0;
    quint64 tail = 0;
    QHash<QString, RunStateStore::Update>::const_iterator it;

    bool operator<(const BatchRow& other) const {
        if (head != other.head) {
            return head < other.head;
        }
        if (tail != other.tail) {
            return tail < other.tail;
        }
        return it.key() < other.it.key();
    }
};

quint64 Pack(const QString& text, int from) {
    quint64 packed = 0;
    for (int i = from; i < from + 4; ++i) {
        packed = (packed << 16) | (i < text.size() ? text.at(i).unicode() : 0);
    }
    return packed;
}

// In key order the rows go to neighbouring pages of the table, which makes a
// large batch several times cheaper to write than in hash order.
std::vector<BatchRow> InKeyOrder(const QHash<QString, RunStateStore::Update>& batch) {
    std::vector<BatchRow> rows;
    rows.reserve(static_cast<size_t>(batch.size()));
    for (auto it = batch.constBegin(); it != batch.constEnd(); ++it) {
        rows.push_back(BatchRow{Pack(it.key(), 0), Pack(it.key(), 4), it});
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}
} // namespace

bool RunStateStore::WriteBatch(const QHash<QString, Update>& batch) {
    sqlite3* handle = m_handle;
    qint64 writtenAt = 0;
    bool ok = handle != nullptr && sqlite3_exec(handle, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
    {
        const Statement upsert = ok ? Prepare(handle, kUpsert) : Statement();
        const Statement remove = ok ? Prepare(handle, "DELETE FROM runs WHERE plan_uuid = ?") : Statement();
        const Statement meta =
            ok ? Prepare(handle, "INSERT OR REPLACE INTO meta (key, value) VALUES ('written_at', ?)")
               : Statement();
        ok = ok && upsert && remove && meta;
        const std::vector<BatchRow> rows = InKeyOrder(batch);
        for (auto row = rows.cbegin(); ok && row != rows.cend(); ++row) {
            ok = WriteUpdate(upsert.get(), remove.get(), row->it.key(), row->it.value()) &&
                 WriteHistory(row->it.key(), row->it.value());
        }
        ok = ok && m_history.Prune(Clock::nowMSecsSinceEpoch());
        if (ok) {
            writtenAt = Clock::nowMSecsSinceEpoch();
            sqlite3_bind_int64(meta.get(), 1, writtenAt);
            ok = Step(meta.get());
        }
    }
    if (ok && sqlite3_exec(handle, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) {
        m_writtenAtMSecs = writtenAt;
        m_reportedWriteFailure = false;
        return true;
    }
    const QString problem =
        handle != nullptr ? QString::fromUtf8(sqlite3_errmsg(handle)) : QString("no connection");
    if (handle != nullptr) {
        sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    m_history.Forget();
    // One line per streak of failures; the next batch tries again.
    if (!m_reportedWriteFailure) {
        Logger::Warn(QString("The run state of %1 plans could not be written to %2 (%3).")
                         .arg(batch.size())
                         .arg(m_path, problem));
        m_reportedWriteFailure = true;
    }
    return false;
}

// The earliest next start is followed from the batches; only when the plan
// that held it changes is the file asked again.
void RunStateStore::RefreshSummary(const QHash<QString, Update>& batch) {
    Summary summary = LastSummary();
    bool rescan = false;
    bool changed = false;
    for (auto it = batch.constBegin(); it != batch.constEnd(); ++it) {
        const Update& u = it.value();
        if (it.key() == summary.nextPlan && (u.removeFirst || u.schedule)) {
            rescan = true;
        } else if (u.schedule && !u.schedule->nextStart.isEmpty() &&
                   (summary.nextStart.isEmpty() || u.schedule->nextStart < summary.nextStart)) {
            summary = Summary{it.key(), u.schedule->nextStart};
            changed = true;
        }
    }
    if (rescan) {
        summary = EarliestStart(m_handle);
        changed = true;
    }
    if (changed) {
        Publish(summary);
        Q_EMIT summaryChanged();
    }
}

void RunStateStore::HoldBatch(bool held) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_held = held;
    if (!held && g_current != nullptr) {
        g_current->m_wake.notify_all();
    }
}

QHash<QString, RunStateStore::Update> RunStateStore::Merged(const std::vector<Change>& changes) {
    QHash<QString, Update> batch;
    batch.reserve(static_cast<int>(changes.size()));
    for (const Change& change : changes) {
        Apply(batch[change.first], change.second);
    }
    return batch;
}

bool RunStateStore::BatchHeld() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_held;
}

void RunStateStore::Merge(const QString& planUuid, const Update& change) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_current == nullptr) {
        return;
    }
    if (g_changes.empty()) {
        g_firstChange = std::chrono::steady_clock::now();
        g_current->m_wake.notify_all();
    }
    g_changes.emplace_back(planUuid, change);
}

void RunStateStore::RecordRun(const QString& planUuid, quint64 triggerType, const QString& due,
                              qint64 handedMSecs) {
    Merge(planUuid, Update{false, triggerType, Update::Run{due, handedMSecs}, {}, {}, {}});
}

void RunStateStore::RecordSchedule(const QString& planUuid, quint64 triggerType, const QString& nextStart,
                                   quint64 endFlag) {
    Schedule schedule;
    schedule.nextStart = nextStart;
    schedule.endFlag = endFlag;
    RecordSchedule(planUuid, triggerType, schedule);
}

void RunStateStore::RecordSchedule(const QString& planUuid, quint64 triggerType, const Schedule& schedule) {
    Merge(planUuid, Update{false, triggerType, {}, schedule, {}, {}});
}

void RunStateStore::RecordResult(const QString& planUuid, quint64 result, qint64 atMSecs) {
    Merge(planUuid, Update{false,
                           0,
                           {},
                           {},
                           Update::Result{result, atMSecs},
                           {RunHistory::Event{{}, RunHistory::Answer{result, atMSecs}}}});
}

void RunStateStore::RecordRemoval(const QString& planUuid) {
    Merge(planUuid, Update{true, 0, {}, {}, {}, {}});
}

void RunStateStore::RecordOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    Merge(planUuid, Update{false, 0, {}, {}, {}, {RunHistory::Event{occurrence, {}}}});
}

bool RunStateStore::WriteHistory(const QString& planUuid, const Update& u) {
    return m_history.Write(planUuid, u.history);
}

quint64 RunStateStore::UnwrittenChanges() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return m_unwrittenCount + (g_current == this ? static_cast<quint64>(g_changes.size()) : 0);
}

// Each batch is observed once, when it is taken, whether or not its write
// succeeds: a batch that failed is written again with the next, not counted
// again.
void RunStateStore::Observe(const QHash<QString, Update>& taken) {
    for (auto it = taken.constBegin(); it != taken.constEnd(); ++it) {
        const Update& u = it.value();
        if (u.removeFirst) {
            m_health.Remove(it.key());
        }
        if (u.run) {
            m_health.NoteRun(it.key(), u.triggerType, u.run->handedMSecs);
        }
        for (const RunHistory::Event& event : u.history) {
            if (!event.answer) {
                ObserveOccurrence(it.key(), event.occurrence);
            }
        }
        if (u.schedule) {
            m_health.NoteSchedule(it.key(), u.triggerType, u.schedule->nextStart, u.schedule->endFlag);
        }
        if (u.result) {
            m_health.NoteResult(it.key(), u.result->code, u.result->atMSecs);
            m_tally.NoteAnswer(u.result->code);
        }
    }
}

// Every start the history records is a run by its outcome, a missed one also
// by its reason; a plan's end or deletion is no run.
void RunStateStore::ObserveOccurrence(const QString& planUuid, const RunHistory::Occurrence& occurrence) {
    using Outcome = RunHistory::Outcome;
    if (occurrence.outcome < Outcome::OnTime || occurrence.outcome > Outcome::Moved) {
        return;
    }
    m_tally.NoteOutcome(occurrence.outcome);
    if (occurrence.outcome == Outcome::Missed || occurrence.outcome == Outcome::Merged) {
        m_tally.NoteMissed(occurrence.reason);
        m_health.NoteMissed(planUuid, occurrence.dueMSecs);
        return;
    }
    if (occurrence.handedMSecs >= 0) {
        m_tally.NoteLateness(occurrence.handedMSecs - occurrence.dueMSecs);
    }
}

// The plans the file knows when it is opened, read through the raw handle: at
// a million plans Qt SQL's value conversions would cost seconds.
void RunStateStore::LoadHealth() {
    m_health.Clear();
    if (m_handle == nullptr) {
        return;
    }
    const Statement rows =
        Prepare(m_handle, "SELECT plan_uuid, trigger_type, next_start, end_flag, last_handed, "
                          "result, result_at FROM runs");
    while (rows && sqlite3_step(rows.get()) == SQLITE_ROW) {
        sqlite3_stmt* row = rows.get();
        m_health.Put(ColumnText(row, 0), static_cast<quint64>(sqlite3_column_int64(row, 1)),
                     ColumnText(row, 2), static_cast<quint64>(sqlite3_column_int64(row, 3)),
                     sqlite3_column_int64(row, 4), sqlite3_column_type(row, 5) != SQLITE_NULL,
                     static_cast<quint64>(sqlite3_column_int64(row, 5)), sqlite3_column_int64(row, 6));
    }
    const Statement written = Prepare(m_handle, "SELECT value FROM meta WHERE key = 'written_at'");
    m_writtenAtMSecs =
        written && sqlite3_step(written.get()) == SQLITE_ROW ? sqlite3_column_int64(written.get(), 0) : 0;
}
