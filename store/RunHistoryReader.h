#pragma once

#include "RunHistory.h"

#include <QString>
#include <QVector>

struct sqlite3;

// A read-only view of the run history for tools. It opens data/state.db
// read-only and, the file being in WAL mode, never blocks the service.
class RunHistoryReader {
public:
    struct Row {
        QString planUuid;
        qint64 dueMSecs = 0;
        qint64 handedMSecs = -1; // -1: nothing was handed
        RunHistory::Outcome outcome = RunHistory::Outcome::OnTime;
        RunHistory::Reason reason = RunHistory::Reason::None;
        qint64 detail = 0;
        int merged = 0;
        bool hasResult = false;
        qint64 result = 0; // RunHistory::kNoAnswer: the next start came first
        qint64 resultMSecs = 0;
    };
    struct Filter {
        QString planUuid;      // empty: every plan
        qint64 sinceMSecs = 0; // 0: from the beginning
        QString outcome;       // a name of OutcomeNames(); empty: any
        int limit = -1;        // newest rows only; -1: all
    };

    RunHistoryReader() = default;
    ~RunHistoryReader();
    RunHistoryReader(const RunHistoryReader&) = delete;
    RunHistoryReader& operator=(const RunHistoryReader&) = delete;

    bool Open(const QString& path, QString& error);
    // Newest first.
    bool Read(const Filter& filter, QVector<Row>& rows, QString& error);
    // The newest row of each plan, by plan UUID, for the status table.
    bool ReadNewest(QHash<QString, Row>& rows, QString& error);
    // Every plan that has a history, for completion.
    bool ReadPlans(QStringList& plans, QString& error);

    // The outcome names --outcome takes: those of RunHistory::OutcomeName with
    // blanks as dashes, and "refused" and "no-answer" for the agent's answer.
    static QStringList OutcomeNames();

private:
    sqlite3* m_handle = nullptr;
};
