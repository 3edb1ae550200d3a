#pragma once

#include "RunStateRecorder.h"

#include <QHash>
#include <QString>

#include <functional>

struct sqlite3;

// The state file itself, through Qt SQL: opening it, proving it a state file
// of a known schema (or bringing an older one up to date), setting a damaged
// one aside, and reading what it knew of the plans when the service started.
class RunStateFile {
public:
    // Asked once for each stored row: the service asks its registry, which it
    // would otherwise copy into a set of every plan's UUID at each start.
    using IsLivePlan = std::function<bool(const QString& planUuid)>;

    static constexpr int kSchemaVersion = 2;

    // What the state file knew of a plan when the service started.
    struct StoredRun {
        QString lastDue;   // "yyyy-MM-dd hh:mm:ss"; empty when the plan never ran
        QString nextStart; // empty when none was known
        RunStateRecorder::Schedule schedule = {};
        // Set when the plan goes on from this row instead of a first
        // computation.
        bool resumed = false;
    };

    RunStateFile();
    ~RunStateFile();
    RunStateFile(const RunStateFile&) = delete;
    RunStateFile& operator=(const RunStateFile&) = delete;

    // Opens the file, or starts a fresh one when it is missing, locked or
    // damaged (the damaged file is renamed aside, never deleted). False only
    // when no state file can be used at all; it has said why.
    bool Open(const QString& path);
    // The rows of the plans for which `isLive` is true; the rows of the others
    // are deleted, and all of them when `isLive` is empty. A file that cannot be
    // read or pruned gives what could be read, with one line saying what failed.
    QHash<QString, StoredRun> LoadAndPrune(const IsLivePlan& isLive);
    // The connection's own SQLite handle; null while closed.
    sqlite3* Handle() const;
    const QString& Path() const { return m_path; }
    // On the thread that called Open.
    void Close();

private:
    bool OpenFile(QString& problem);
    bool EnsureSchema(QString& problem);
    bool Migrate(QString& problem);
    QString SetAside();
    bool Prune(const QStringList& gone);

    QString m_path;
    QString m_connectionName;
    bool m_open = false;
};
