// Texts from outside in log lines: escaped, clipped, never more than one line.
#include "framework/LogText.h"

#include <gtest/gtest.h>

namespace {
const QString kEllipsis(QChar(0x2026));

struct EscapeCase {
    const char* name;
    QString text;
    QString logged;
};

class LogTextEscape : public ::testing::TestWithParam<EscapeCase> {};

TEST_P(LogTextEscape, Outside) {
    EXPECT_EQ(LogText::Outside(GetParam().text), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LogTextEscape,
    ::testing::Values(
        EscapeCase{"Plain", "[200#7]", "[200#7]"}, EscapeCase{"Empty", "", ""},
        EscapeCase{"ForgedLine", "x\n2026-01-01 00:00:00.000 [1] ERROR forged line",
                   "x\\n2026-01-01 00:00:00.000 [1] ERROR forged line"},
        EscapeCase{"CarriageReturnAndTab", "a\rb\tc", "a\\rb\\tc"},
        EscapeCase{"OtherControls", QString("a") + QChar(0x01) + QChar(0x7f) + QChar(0x85) + "b",
                   "a\\x01\\x7f\\x85b"},
        EscapeCase{"UnicodeLineSeparators", QString("a") + QChar(0x2028) + QChar(0x2029), "a\\u2028\\u2029"},
        EscapeCase{"NonAsciiKept", QString::fromUtf8("Sauvegarde \xc3\xa9t\xc3\xa9"),
                   QString::fromUtf8("Sauvegarde \xc3\xa9t\xc3\xa9")},
        EscapeCase{"ExactlyTheLimit", QString(128, 'a'), QString(128, 'a')},
        EscapeCase{"OneOverTheLimit", QString(129, 'a'), QString(128, 'a') + kEllipsis},
        EscapeCase{"HugeTrace", QString(400000, 'x'), QString(128, 'x') + kEllipsis},
        EscapeCase{"EscapeNotCutInTwo", QString(127, 'a') + "\n", QString(127, 'a') + kEllipsis},
        EscapeCase{"EscapesCountTowardsTheLimit", QString(100, '\n'),
                   QString("\\n").repeated(64) + kEllipsis},
        EscapeCase{"SurrogatePairNotCutInTwo", QString(127, 'a') + QString::fromUtf8("\xf0\x9f\x98\x80"),
                   QString(127, 'a') + kEllipsis}),
    [](const ::testing::TestParamInfo<EscapeCase>& info) { return info.param.name; });

TEST(LogText, OneLineEscapesControlsButKeepsLength) {
    const QString line = QString(300, 'a') + "\nb";
    EXPECT_EQ(LogText::OneLine(line), QString(300, 'a') + "\\nb");
    EXPECT_EQ(LogText::OneLine(QString(300, 'a')), QString(300, 'a'));
}

TEST(LogText, EscapedTextIsStable) {
    const QString once = LogText::Outside("a\nb\x01");
    EXPECT_EQ(LogText::OneLine(once), once);
}
} // namespace
