// Start texts kept as digits: every text comes back exactly as it was set,
// null and empty included, and equal texts compare equal however they are kept.
#include "framework/PackedDateTimeText.h"

#include <gtest/gtest.h>

namespace {
struct TextCase {
    const char* name;
    QString text;
};

class PackedText : public ::testing::TestWithParam<TextCase> {};

TEST_P(PackedText, ComesBackAsItWasSet) {
    const QString& text = GetParam().text;
    const PackedDateTimeText packed(text);
    EXPECT_EQ(packed.text(), text);
    EXPECT_EQ(packed.text().isNull(), text.isNull());
    PackedDateTimeText copy;
    copy = packed;
    EXPECT_EQ(copy.text(), text);
    EXPECT_TRUE(copy == packed);
    EXPECT_TRUE(PackedDateTimeText(copy) == PackedDateTimeText(text));
    EXPECT_FALSE(packed == PackedDateTimeText(text + "0"));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PackedText,
    ::testing::Values(TextCase{"Usual", "2026-03-10 08:00:00"}, TextCase{"AllZeros", "0000-00-00 00:00:00"},
                      TextCase{"AllNines", "9999-99-99 99:99:99"}, TextCase{"Null", QString()},
                      TextCase{"Empty", ""}, TextCase{"NoSeconds", "2026-03-10 08:00"},
                      TextCase{"TSeparator", "2026-03-10T08:00:00"},
                      TextCase{"LetterInADigitsPlace", "2026-03-1x 08:00:00"},
                      TextCase{"NonAsciiDigit", QString("2026-03-10 08:00:0") + QChar(0x0661)},
                      TextCase{"Longer", "2026-03-10 08:00:00.000"}),
    [](const ::testing::TestParamInfo<TextCase>& info) { return std::string(info.param.name); });

TEST(PackedTextAssignment, ReplacesAStringByDigitsAndBack) {
    PackedDateTimeText text(QString("not a date"));
    text = PackedDateTimeText(QString("2026-03-10 08:00:00"));
    EXPECT_EQ(text.text(), "2026-03-10 08:00:00");
    text = PackedDateTimeText(QString("still not a date"));
    EXPECT_EQ(text.text(), "still not a date");
    const PackedDateTimeText& same = text;
    text = same;
    EXPECT_EQ(text.text(), "still not a date");
}
} // namespace
