#pragma once

#include <QString>
#include <QVector>

// A read-only view of data/state.db for tools: it never writes the file and,
// the file being in WAL mode, never blocks the service while it reads.
class RunStateReader {
public:
    struct Plan {
        QString planUuid;
        quint64 triggerType = 0;
        QString nextStart; // empty: no further start
        quint64 endFlag = 0;
        QString lastDue; // empty: never ran
        qint64 lastHandedMSecs = 0;
        bool hasResult = false;
        quint64 result = 0;
        qint64 resultMSecs = 0;
    };

    RunStateReader();
    ~RunStateReader();
    RunStateReader(const RunStateReader&) = delete;
    RunStateReader& operator=(const RunStateReader&) = delete;

    bool Open(const QString& path, QString& error);
    // The plans sorted by next start (plans without one last, by UUID); only
    // the one plan when `planUuid` is given.
    bool Read(const QString& planUuid, QVector<Plan>& plans, QString& error);
    // When the service last wrote the file, ms since the epoch; 0 when unknown.
    qint64 WrittenAtMSecs();

private:
    QString m_connectionName;
    bool m_open = false;
};
