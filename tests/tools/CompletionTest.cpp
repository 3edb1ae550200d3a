// The bash completion of orvelctl, driven through bash itself as
// bash-completion would: COMP_WORDS in, COMPREPLY out.
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
struct CompletionRow {
    const char* name;
    const char* line; // the words before the cursor word, then the cursor word
    const char* expected;
};

// Runs the script in a bash of its own and prints the reply, one word a line.
QString Complete(const QString& words, const QString& db) {
    const QString script = QString("set -e\n"
                                   "sqlite3 '%1' \"CREATE TABLE triggers (plan_uuid TEXT PRIMARY KEY); "
                                   "INSERT INTO triggers VALUES ('nightly-a'), ('nightly-b'), ('hourly');\"\n"
                                   "source '%2/packaging/orvelctl.bash-completion'\n"
                                   "complete -p orvelctl\n"
                                   "COMP_WORDS=('%3/orvelctl' %4)\n"
                                   "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                                   "_orvelctl\n"
                                   "printf '%s\\n' \"${COMPREPLY[@]}\"\n")
                               .arg(db, ORVEL_SOURCE_DIR, ORVEL_BIN_DIR, words);
    QProcess bash;
    bash.start("bash", {"--norc", "-c", script});
    EXPECT_TRUE(bash.waitForFinished(20000));
    EXPECT_EQ(bash.exitCode(), 0) << bash.readAllStandardError().toStdString();
    return QString::fromUtf8(bash.readAllStandardOutput());
}

class Completion : public ::testing::TestWithParam<CompletionRow> {};

TEST_P(Completion, OffersWhatTheWordCanBe) {
    QTemporaryDir dir;
    const QString db = dir.filePath("alldb.db");
    const CompletionRow& row = GetParam();
    const QString words = QString(row.line).replace("%1", db);
    const QStringList lines = Complete(words, db).split('\n', Qt::SkipEmptyParts);
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_EQ(lines.front(), "complete -F _orvelctl orvelctl");
    EXPECT_EQ(lines.mid(1).join(' '), row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Completion,
    ::testing::Values(CompletionRow{"subcommands", "'h'", "history"},
                      CompletionRow{"historyOptions", "history '--s'", "--since --state"},
                      CompletionRow{"outcomes", "history --outcome 'ca'", "caught-up"},
                      CompletionRow{"plansOfTheNamedDatabase", "plan delete --db '%1' --plan 'night'",
                                    "nightly-a nightly-b"},
                      CompletionRow{"oneMatch", "plan modify --db '%1' --plan 'h'", "hourly"}),
    [](const ::testing::TestParamInfo<CompletionRow>& info) { return std::string(info.param.name); });
} // namespace
