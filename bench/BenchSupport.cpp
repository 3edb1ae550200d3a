#include "BenchSupport.h"

#include "framework/DatabaseFunctionOperation.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

#include <sys/resource.h>
#include <unistd.h>

TriggerAttribute BenchSupport::QuietTrigger(int index) {
    TriggerAttribute attribute;
    attribute.setTriggerType(static_cast<quint64>(2 + index % 3));
    attribute.setStartTime(
        QString("2099-01-01 %1:%2:00").arg(index % 24, 2, 10, QChar('0')).arg(index % 60, 2, 10, QChar('0')));
    attribute.setWeekDays("1,3,5");
    attribute.setMonthDays("1,15");
    return attribute;
}

void BenchSupport::StorePlans(const QString& path, int count) {
    QFile::remove(path);
    DatabaseFunctionOperation database;
    QString error;
    database.OpenForWriting(path, error);
    database.UnInit();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "bench-writer");
        db.setDatabaseName(path);
        db.open();
        db.transaction();
        QSqlQuery query(db);
        query.prepare("INSERT INTO triggers (plan_uuid, trigger_type, start_time, week_days, month_days) "
                      "VALUES (?, ?, ?, ?, ?)");
        for (int i = 0; i < count; ++i) {
            const TriggerAttribute attribute = QuietTrigger(i);
            query.addBindValue(QString("{%1-plan-uuid-0000-000000000000}").arg(i, 8, 10, QChar('0')));
            query.addBindValue(attribute.getTriggerType());
            query.addBindValue(attribute.getStartTime());
            query.addBindValue(attribute.getWeekDays());
            query.addBindValue(attribute.getMonthDays());
            query.exec();
        }
        db.commit();
        db.close();
    }
    QSqlDatabase::removeDatabase("bench-writer");
}

qint64 BenchSupport::ResidentBytes() {
    QFile statm("/proc/self/statm");
    statm.open(QIODevice::ReadOnly);
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

double BenchSupport::CpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double BenchSupport::RunOrvelctl(const QStringList& arguments, qint64& bytes, double& cpu) {
    const double cpuBefore = CpuSeconds(RUSAGE_CHILDREN);
    QProcess orvelctl;
    QElapsedTimer timer;
    timer.start();
    orvelctl.start(QCoreApplication::applicationDirPath() + "/orvelctl", arguments);
    orvelctl.waitForFinished(120000);
    bytes = orvelctl.readAllStandardOutput().size();
    cpu = CpuSeconds(RUSAGE_CHILDREN) - cpuBefore;
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}
