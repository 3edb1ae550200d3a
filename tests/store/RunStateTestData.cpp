#include "RunStateTestData.h"

#include "OtherConnection.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace RunStateTestData {
QSet<QString> Plans(int count) {
    QSet<QString> plans;
    for (int i = 0; i < count; ++i) {
        plans.insert(QString("plan-%1").arg(i));
    }
    return plans;
}

RunStateStore::IsLivePlan LiveAmong(const QSet<QString>& plans) {
    return [plans](const QString& planUuid) { return plans.contains(planUuid); };
}

QStringList Rows(const QString& path) {
    QStringList rows;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "reader");
        db.setDatabaseName(path);
        EXPECT_TRUE(db.open());
        QSqlQuery query(db);
        query.exec("SELECT plan_uuid, next_start, end_flag, last_due, last_handed, result FROM runs "
                   "ORDER BY plan_uuid");
        while (query.next()) {
            QStringList fields;
            for (int i = 0; i < 6; ++i) {
                fields << (query.value(i).isNull() ? "-" : query.value(i).toString());
            }
            rows << fields.join(' ');
        }
    }
    QSqlDatabase::removeDatabase("reader");
    return rows;
}

RunStateStore::Schedule FullSchedule(int i) {
    RunStateStore::Schedule schedule;
    schedule.nextStart = "2026-03-11 08:00:00";
    schedule.nextStartMSecs = 1773212400000 + i;
    schedule.nextStartOffsetSecs = 3600;
    schedule.repeatCount = 40 + i % 100;
    schedule.startOffsetSecs = 1800 + i % 1000;
    schedule.firstSeekDone = 1;
    schedule.filledStart = "2026-03-01 07:59:00";
    schedule.fingerprint = 0x7123456789abcdefULL - static_cast<quint64>(i);
    return schedule;
}

void Execute(const QString& path, const QStringList& statements) {
    OtherConnection other(path);
    for (const QString& statement : statements) {
        other.Exec(statement);
    }
}

void WriteFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
}

bool WaitWithoutEvents(const std::function<bool()>& done) {
    QElapsedTimer waited;
    waited.start();
    while (!done()) {
        if (waited.hasExpired(10000)) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}
} // namespace RunStateTestData
