#include "ScalePlans.h"

#include "framework/DatabaseFunctionOperation.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

#include <set>

namespace {
constexpr int kMinutesPerDay = 24 * 60;
const QString kDateTimeFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

// The columns are NOT NULL: a null QString would bind as NULL.
QVariant Text(const QString& text) {
    return text.isNull() ? QVariant(QString("")) : QVariant(text);
}
} // namespace

struct ScalePlans::Row {
    QString planUuid;
    QString planName;
    int type = 0;
    QString startTime;
    QString endTime;
    qint64 intervalSecs = 0;
    qint64 durationSecs = 0;
    QString weekDays;
    QString months;
    QString monthDays;
    int dayLastFlag = 0;
    int endFlag = 0;
};

ScalePlans::ScalePlans(const QDateTime& now, int quietMinutes, unsigned seed)
    : m_now(now),
      m_quietFrom((now.time().hour() * 60 + now.time().minute() + kMinutesPerDay - 2) % kMinutesPerDay),
      m_quietMinutes(quietMinutes), m_random(seed) {}

int ScalePlans::Uniform(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(m_random);
}

bool ScalePlans::IsQuiet(int minuteOfDay) const {
    return (minuteOfDay - m_quietFrom + kMinutesPerDay) % kMinutesPerDay <= m_quietMinutes;
}

// A time of day at which neither the start nor any repetition within the
// day's span falls into the quiet window.
QString ScalePlans::TimeOfDayOutsideQuiet(qint64 intervalSecs, qint64 durationSecs) {
    for (;;) {
        const int second = Uniform(0, 24 * 3600 - 1);
        bool quiet = IsQuiet(second / 60);
        for (qint64 offset = intervalSecs; !quiet && intervalSecs > 0 && offset <= durationSecs;
             offset += intervalSecs) {
            quiet = IsQuiet(static_cast<int>(((second + offset) / 60) % kMinutesPerDay));
        }
        if (!quiet) {
            return QTime(0, 0).addSecs(second).toString("hh:mm:ss");
        }
    }
}

QString ScalePlans::DayList(int low, int high, int maxCount) {
    std::set<int> days;
    const int count = Uniform(1, maxCount);
    while (static_cast<int>(days.size()) < count) {
        days.insert(Uniform(low, high));
    }
    QStringList texts;
    for (int day : days) {
        texts << QString::number(day);
    }
    return texts.join(',');
}

QString ScalePlans::PlanUuid(int index) {
    const auto hex = [this](int digits) {
        QString text;
        for (int i = 0; i < digits; ++i) {
            text += QString::number(Uniform(0, 15), 16);
        }
        return text;
    };
    return QString("{%1-%2-4%3-8%4-%5}").arg(index, 8, 16, QChar('0')).arg(hex(4), hex(3), hex(3), hex(12));
}

int ScalePlans::IndexOf(const QString& planUuid) {
    bool ok = false;
    const int index = planUuid.midRef(1, 8).toInt(&ok, 16);
    return ok ? index : -1;
}

// Shares of the mix, in percent: once 10 (2 of them already past), daily 30,
// daily repeating within the day 10, weekly 25 (3 repeating), monthly 15,
// events 5, ended 5; a tenth of the calendar plans carry an end time a year
// ahead.
ScalePlans::Row ScalePlans::MakeRow(int index) {
    Row row;
    row.planUuid = PlanUuid(index);
    row.planName = QString("Backup plan %1").arg(index);
    const int kind = Uniform(0, 99);
    const QDate created = m_now.date().addDays(-Uniform(1, 400));
    if (kind < 10) {
        row.type = 1;
        const QDate day = kind < 2 ? created : m_now.date().addDays(Uniform(1, 60));
        row.startTime = day.toString("yyyy-MM-dd ") + TimeOfDayOutsideQuiet(0, 0);
        return row;
    }
    if (kind >= 90) {
        row.type = kind < 95 ? Uniform(257, 260) : Uniform(1, 4);
        row.endFlag = kind < 95 ? 0 : 1;
        row.startTime = created.toString("yyyy-MM-dd ") + TimeOfDayOutsideQuiet(0, 0);
        return row;
    }
    const bool repeating = (kind >= 40 && kind < 50) || (kind >= 72 && kind < 75);
    if (repeating) {
        // Repetitions of a daily plan count from the minute its schedule is
        // computed, so intervals of two hours and more keep them out of a run.
        row.intervalSecs = 3600LL * QList<int>{2, 3, 4, 6}.at(Uniform(0, 3));
        row.durationSecs = 3600LL * Uniform(6, 12);
    }
    if (kind < 50) {
        row.type = 2;
    } else if (kind < 75) {
        row.type = 3;
        row.weekDays = DayList(1, 7, 5);
    } else {
        row.type = 4;
        row.monthDays = DayList(1, 28, 3);
        row.dayLastFlag = Uniform(0, 9) == 0 ? 1 : 0;
        row.months = Uniform(0, 4) == 0 ? DayList(1, 12, 6) : QString();
    }
    row.startTime =
        created.toString("yyyy-MM-dd ") + TimeOfDayOutsideQuiet(row.intervalSecs, row.durationSecs);
    if (Uniform(0, 9) == 0) {
        row.endTime = m_now.addDays(365).toString(kDateTimeFormat);
    }
    return row;
}

int ScalePlans::Store(const QString& path, int count) {
    QFile::remove(path);
    {
        DatabaseFunctionOperation schema;
        QString error;
        schema.OpenForWriting(path, error);
        schema.UnInit();
    }
    int reported = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "scale-writer");
        db.setDatabaseName(path);
        db.open();
        QSqlQuery(db).exec("PRAGMA synchronous = OFF");
        db.transaction();
        QSqlQuery query(db);
        query.prepare("INSERT INTO triggers (plan_uuid, plan_name, trigger_type, start_time, end_time, "
                      "interval_secs, duration_secs, week_days, months, month_days, day_last_flag, end_flag) "
                      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        for (int i = 0; i < count; ++i) {
            const Row row = MakeRow(i);
            for (const QVariant& value :
                 {Text(row.planUuid), Text(row.planName), QVariant(row.type), Text(row.startTime),
                  Text(row.endTime), QVariant(row.intervalSecs), QVariant(row.durationSecs),
                  Text(row.weekDays), Text(row.months), Text(row.monthDays), QVariant(row.dayLastFlag),
                  QVariant(row.endFlag)}) {
                query.addBindValue(value);
            }
            if (!query.exec()) {
                return -1;
            }
            if (row.type <= 4 && row.endFlag == 0) {
                ++reported;
            }
        }
        db.commit();
        db.close();
    }
    QSqlDatabase::removeDatabase("scale-writer");
    return reported;
}
