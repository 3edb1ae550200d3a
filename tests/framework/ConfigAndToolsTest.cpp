// Configuration defaults, the list reader and the logger's life cycle.
#include "framework/CommonTools.h"
#include "framework/ConfigReader.h"
#include "framework/Logger.h"

#include <QFile>
#include <QTemporaryDir>

#include <log4cpp/Category.hh>

#include <gtest/gtest.h>

namespace {
void Write(const QString& path, const QByteArray& text) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
}

class ConfigReaderTest : public ::testing::Test {
protected:
    void TearDown() override { ConfigReader::ResetToDefaults(); }
    QTemporaryDir dir;
};

TEST_F(ConfigReaderTest, MissingFileIsRefusedAndDefaultsStay) {
    EXPECT_FALSE(ConfigReader::IniReader(dir.filePath("absent.ini")));
    EXPECT_FALSE(ConfigReader::IniReader(dir.path()));
    EXPECT_EQ(ConfigReader::getAgentLocalServerName(), "127.0.0.1");
    EXPECT_EQ(ConfigReader::getAgentPort(), 6061);
    EXPECT_EQ(ConfigReader::getSchedulerLocalServerName(), "127.0.0.1");
    EXPECT_EQ(ConfigReader::getSchedulerPort(), 6060);
    EXPECT_FALSE(ConfigReader::getAllowRemote());
    EXPECT_EQ(ConfigReader::getMaxClients(), 256);
    EXPECT_EQ(ConfigReader::getDateTimeFireType(), 0u);
}

TEST_F(ConfigReaderTest, MissingKeysTakeTheirDefaults) {
    Write(dir.filePath("config.ini"),
          "[Scheduler]\nDateTimeFireType=1\n[Communication]\nAgentPort=notaport\nSchedulerPort=0\n");
    ASSERT_TRUE(ConfigReader::IniReader(dir.filePath("config.ini")));
    EXPECT_EQ(ConfigReader::getDateTimeFireType(), 1u);
    EXPECT_EQ(ConfigReader::getAgentPort(), 6061);
    // The command server may take any free port; the agent's must be real.
    EXPECT_EQ(ConfigReader::getSchedulerPort(), 0);
    EXPECT_EQ(ConfigReader::getAgentLocalServerName(), "127.0.0.1");
}

TEST_F(ConfigReaderTest, ReadsEveryKey) {
    Write(dir.filePath("config.ini"),
          "[Communication]\nAgentLocalServerName=agent.local\nAgentPort=7000\n"
          "SchedulerLocalServerName=::1\nSchedulerPort=7001\nAllowRemote=true\nMaxClients=16\n");
    ASSERT_TRUE(ConfigReader::IniReader(dir.filePath("config.ini")));
    EXPECT_EQ(ConfigReader::getAgentLocalServerName(), "agent.local");
    EXPECT_EQ(ConfigReader::getAgentPort(), 7000);
    EXPECT_EQ(ConfigReader::getSchedulerLocalServerName(), "::1");
    EXPECT_EQ(ConfigReader::getSchedulerPort(), 7001);
    EXPECT_TRUE(ConfigReader::getAllowRemote());
    EXPECT_EQ(ConfigReader::getMaxClients(), 16);
}

// A count out of its range must neither stop the writes nor spin them.
TEST_F(ConfigReaderTest, MetricsCountsOutOfRangeTakeTheirDefaults) {
    const struct {
        const char* text;
        quint64 intervalSecs;
        quint64 planSeriesLimit;
    } cases[] = {
        {"IntervalSecs=2\nPlanSeriesLimit=5\n", 2, 5},
        {"IntervalSecs=0\nPlanSeriesLimit=-1\n", 15, 100},
        {"IntervalSecs=18446744073709551615\nPlanSeriesLimit=1000000\n", 15, 100},
        {"IntervalSecs=soon\n", 15, 100},
    };
    for (const auto& c : cases) {
        Write(dir.filePath("config.ini"), QByteArray("[Metrics]\nTextfilePath=/tmp/x.prom\n") + c.text);
        ASSERT_TRUE(ConfigReader::IniReader(dir.filePath("config.ini")));
        const ConfigReader::Metrics metrics = ConfigReader::getMetrics();
        EXPECT_EQ(metrics.textfilePath, "/tmp/x.prom");
        EXPECT_EQ(metrics.intervalSecs, c.intervalSecs) << c.text;
        EXPECT_EQ(metrics.planSeriesLimit, c.planSeriesLimit) << c.text;
    }
}

struct ListCase {
    const char* text;
    QList<quint64> expected;
};

TEST(StringToList, ReadsUnsignedDecimalsAndSkipsTheRest) {
    const ListCase cases[] = {
        {"", {}},
        {"1,3,5", {1, 3, 5}},
        {" 1 , 3 ,5 ", {1, 3, 5}},
        {"1,,3", {1, 3}},
        {"1,x,-2,+3,4.5,7", {1, 7}},
        {"18446744073709551615", {18446744073709551615ULL}},
        {"18446744073709551616", {}},
        {"\t2\n,\u00a04", {2, 4}},
        {"1 2,\u0663,5,", {5}},
        {",", {}},
    };
    for (const ListCase& c : cases) {
        SCOPED_TRACE(c.text);
        QList<quint64> values{99};
        CommonTools::StringToList(c.text, values);
        EXPECT_EQ(values, c.expected);
    }
}

TEST(Logger, UsableBeforeInitializeAndAfterUnInitialize) {
    Logger::Info("before initialize goes nowhere");
    QTemporaryDir dir;
    const QString appDir = dir.path() + "/";
    ASSERT_TRUE(Logger::Initialize(appDir, "log", "test.log"));
    Logger::Error("a line with level");
    Logger::UnInitialize();
    Logger::UnInitialize();
    Logger::Warn("after uninitialize goes nowhere");
    QFile file(appDir + "log/test.log");
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.contains("ERROR a line with level"));
    EXPECT_FALSE(text.contains("nowhere"));
}

TEST(Logger, RefusesALogFolderThatCannotBeCreated) {
    QTemporaryDir dir;
    Write(dir.filePath("log"), "a file where the folder should be");
    EXPECT_FALSE(Logger::Initialize(dir.path() + "/", "log", "test.log"));
}
} // namespace
