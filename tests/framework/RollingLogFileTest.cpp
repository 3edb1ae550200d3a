// The log file at its limits: rolling by size with the banner on top of every
// file, the number of files kept, lines that reach the disk without waiting
// for a flush, and the [Log] configuration keys.
#include "framework/ConfigReader.h"
#include "framework/Logger.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {
QStringList LinesOf(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

class LogFiles : public ::testing::Test {
protected:
    void TearDown() override { Logger::UnInitialize(); }

    QString Path(const QString& suffix = QString()) const { return dir.filePath("log/test.log") + suffix; }

    QTemporaryDir dir;
};

TEST_F(LogFiles, EveryFileBeginsWithTheBannerAndAtMostMaxFilesAreKept) {
    ASSERT_TRUE(Logger::Initialize(dir.path() + "/", "log", "test.log", 1, 3));
    Logger::Banner({"=== banner ===", "    start    "});
    const QString filler(200, 'x');
    for (int i = 0; i < 30000; ++i) {
        Logger::Info(QString("line %1 %2").arg(i).arg(filler));
    }
    Logger::Flush();
    EXPECT_EQ(QDir(dir.filePath("log")).entryList(QDir::Files).size(), 3);
    EXPECT_FALSE(QFile::exists(Path(".3")));
    for (const QString& suffix : {QString(), QString(".1"), QString(".2")}) {
        SCOPED_TRACE(suffix.toStdString());
        const QStringList lines = LinesOf(Path(suffix));
        ASSERT_GT(lines.size(), 2);
        EXPECT_TRUE(lines.at(0).endsWith("INFO  === banner ===")) << lines.at(0).toStdString();
        EXPECT_TRUE(lines.at(1).endsWith("INFO      start    ")) << lines.at(1).toStdString();
        EXPECT_LE(QFile(Path(suffix)).size(), 1024 * 1024);
    }
    // Nothing is lost at the seams: the newest file ends with the last line
    // and the one before it continues where the previous file stopped.
    EXPECT_TRUE(LinesOf(Path()).last().contains("line 29999 "));
    const int firstOfNewest =
        QRegularExpression(R"(line (\d+) )").match(LinesOf(Path()).at(2)).captured(1).toInt();
    ASSERT_GT(firstOfNewest, 0);
    EXPECT_TRUE(LinesOf(Path(".1")).last().contains(QString("line %1 ").arg(firstOfNewest - 1)));
}

TEST_F(LogFiles, LinesHaveTheFixedLayout) {
    ASSERT_TRUE(Logger::Initialize(dir.path() + "/", "log", "test.log"));
    Logger::Warn("a warning");
    Logger::Debug("a detail");
    Logger::Flush();
    const QStringList lines = LinesOf(Path());
    ASSERT_EQ(lines.size(), 2);
    const QRegularExpression layout(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[\d+\] (WARN  a warning|DEBUG a detail)$)");
    for (const QString& line : lines) {
        EXPECT_TRUE(layout.match(line).hasMatch()) << line.toStdString();
    }
}

TEST_F(LogFiles, WarningsAreOnDiskAtOnceAndInfoLinesSoonAfter) {
    ASSERT_TRUE(Logger::Initialize(dir.path() + "/", "log", "test.log"));
    Logger::Info("an info line");
    Logger::Error("an error");
    EXPECT_EQ(LinesOf(Path()).size(), 2);
    Logger::Info("a later info line");
    EXPECT_TRUE(QTest::qWaitFor([&] { return LinesOf(Path()).size() == 3; }, 10000));
}

struct LimitRow {
    const char* ini;
    quint64 maxFileMiB;
    quint64 maxFiles;
    int problems;
};

TEST(LogLimits, ReadFromTheLogSectionWithDefaultsForBadValues) {
    const LimitRow rows[] = {
        {"", 10, 5, 0},
        {"[Log]\nMaxFileMiB=50\nMaxFiles=20\n", 50, 20, 0},
        {"[Log]\nMaxFileMiB=0\nMaxFiles=1\n", 10, 1, 1},
        {"[Log]\nMaxFileMiB=lots\nMaxFiles=-3\n", 10, 5, 2},
        {"[Log]\nMaxFileMiB=4097\nMaxFiles=1001\n", 10, 5, 2},
    };
    for (const LimitRow& row : rows) {
        SCOPED_TRACE(row.ini);
        QTemporaryDir dir;
        QFile file(dir.filePath("config.ini"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(row.ini);
        file.close();
        quint64 maxFileMiB = Logger::kDefaultMaxFileMiB;
        quint64 maxFiles = Logger::kDefaultMaxFiles;
        QStringList problems;
        ConfigReader::ReadLogLimits(file.fileName(), maxFileMiB, maxFiles, problems);
        EXPECT_EQ(maxFileMiB, row.maxFileMiB);
        EXPECT_EQ(maxFiles, row.maxFiles);
        EXPECT_EQ(problems.size(), row.problems);
    }
}
} // namespace
