// Text readings: UTF-8 to UTF-16 with byte offsets (the phone's regex engine), switches, and strict integers.
#include "base/text.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <vector>

namespace qv {
namespace {

struct Utf16Case {
    const char *name;
    std::string_view utf8;
    std::u16string units;
    std::vector<std::size_t> offsets; // for each unit, then one past the end
};

class Utf16Conversion : public ::testing::TestWithParam<Utf16Case> {};

TEST_P(Utf16Conversion, KeepsTheByteOffsetOfEveryUnit) {
    const Utf16Text text(GetParam().utf8);
    EXPECT_EQ(text.units(), GetParam().units);
    std::vector<std::size_t> offsets;
    for (std::size_t unit = 0; unit <= text.units().size(); ++unit) {
        offsets.push_back(text.byteOffset(unit));
    }
    EXPECT_EQ(offsets, GetParam().offsets);
    EXPECT_EQ(text.byteOffset(text.units().size() + 5), GetParam().utf8.size());
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Utf16Conversion,
    ::testing::Values(Utf16Case{"Empty", "", u"", {0}}, Utf16Case{"Ascii", "ab", u"ab", {0, 1, 2}},
                      Utf16Case{"TwoByte", "\xC3\xA9", u"\u00E9", {0, 2}},
                      Utf16Case{"ThreeByteBetweenAscii",
                                "a\xE2\x82\xAC"
                                "b",
                                u"a\u20ACb",
                                {0, 1, 4, 5}},
                      Utf16Case{"SupplementaryIsASurrogatePair", "\xF0\x9F\x98\x80!", u"\U0001F600!", {0, 0, 4, 5}},
                      Utf16Case{"StrayByte", "\xFFx", u"\uFFFDx", {0, 1, 2}},
                      Utf16Case{"TruncatedSequence", "\xE2\x82", u"\uFFFD\uFFFD", {0, 1, 2}},
                      Utf16Case{"OverlongForm", "\xC0\xAF", u"\uFFFD\uFFFD", {0, 1, 2}},
                      Utf16Case{"EncodedSurrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", {0, 1, 2, 3}},
                      Utf16Case{"BeyondUnicode", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", {0, 1, 2, 3, 4}}),
    [](const auto &info) { return std::string(info.param.name); });

struct SwitchCase {
    const char *name;
    Value value;
    bool on;
};

class LenientBool : public ::testing::TestWithParam<SwitchCase> {};

TEST_P(LenientBool, ReadsAsThePlatformReadsASwitch) {
    EXPECT_EQ(lenientBool(GetParam().value), GetParam().on);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, LenientBool,
    ::testing::Values(SwitchCase{"Yes", Value("YES"), true}, SwitchCase{"LowerTrue", Value("true"), true},
                      SwitchCase{"OnlyTheFirstLetterCounts", Value("Yup"), true}, SwitchCase{"One", Value("1"), true},
                      SwitchCase{"LeadingZerosAndSign", Value(" -007"), true},
                      SwitchCase{"LeadingSpaceBeforeYes", Value("  yes"), true}, SwitchCase{"No", Value("NO"), false},
                      SwitchCase{"False", Value("false"), false}, SwitchCase{"Zeros", Value("000"), false},
                      SwitchCase{"HexIsNotRead", Value("0x1"), false}, SwitchCase{"Empty", Value(""), false},
                      SwitchCase{"SignAlone", Value("+"), false}, SwitchCase{"NumberTwo", Value(2), true},
                      SwitchCase{"NumberZero", Value(0), false}, SwitchCase{"BooleanTrue", Value(true), true},
                      SwitchCase{"Null", Value(), false}),
    [](const auto &info) { return std::string(info.param.name); });

constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
constexpr auto kMax = std::numeric_limits<std::int64_t>::max();

struct IntegerCase {
    const char *name;
    std::string_view text;
    std::int64_t least;
    std::int64_t most;
    std::optional<std::int64_t> value; // nothing: refused with `refusal`
    ErrorCode refusal = ErrorCode::NotInteger;
};

class StrictInteger : public ::testing::TestWithParam<IntegerCase> {};

TEST_P(StrictInteger, ReadsOnlyAWholeDecimalNumberInRange) {
    const auto read = strictInteger(GetParam().text, GetParam().least, GetParam().most);
    if (GetParam().value) {
        ASSERT_TRUE(read) << read.error().describe();
        EXPECT_EQ(*read, *GetParam().value);
    } else {
        ASSERT_FALSE(read) << *read;
        EXPECT_EQ(read.error().code, GetParam().refusal);
        EXPECT_NE(read.error().detail.find(GetParam().text), std::string::npos) << read.error().detail;
    }
}

constexpr ErrorCode kOutOfRange = ErrorCode::IntegerOutOfRange;

INSTANTIATE_TEST_SUITE_P(
    Texts, StrictInteger,
    ::testing::Values(
        IntegerCase{"Zero", "0", 0, kMax, 0}, IntegerCase{"LeadingZeros", "007", 0, kMax, 7},
        IntegerCase{"LargestIdentifier", "9223372036854775807", 0, kMax, kMax},
        IntegerCase{"OnePastLargest", "9223372036854775808", 0, kMax, std::nullopt, kOutOfRange},
        IntegerCase{"FarPastLargest", "99999999999999999999999", 0, kMax, std::nullopt, kOutOfRange},
        IntegerCase{"MostNegative", "-9223372036854775808", kMin, kMax, kMin},
        IntegerCase{"PastMostNegative", "-9223372036854775809", kMin, kMax, std::nullopt, kOutOfRange},
        IntegerCase{"PlusWhereSigned", "+12", kMin, kMax, 12}, IntegerCase{"MinusZero", "-0", kMin, kMax, 0},
        IntegerCase{"PlusOnAnIdentifier", "+12", 0, kMax, std::nullopt},
        IntegerCase{"MinusOnAnIdentifier", "-1", 0, kMax, std::nullopt},
        IntegerCase{"SignAlone", "-", kMin, kMax, std::nullopt}, IntegerCase{"Empty", "", 0, kMax, std::nullopt},
        IntegerCase{"LeadingSpace", " 5", 0, kMax, std::nullopt},
        IntegerCase{"TrailingNewline", "5\n", 0, kMax, std::nullopt},
        IntegerCase{"HexPrefix", "0x10", 0, kMax, std::nullopt}, IntegerCase{"Exponent", "1e3", 0, kMax, std::nullopt},
        IntegerCase{"Fraction", "2.0", 0, kMax, std::nullopt},
        IntegerCase{"DigitSeparator", "1'000", 0, kMax, std::nullopt},
        IntegerCase{"FullWidthDigit", "\xEF\xBC\x91", 0, kMax, std::nullopt},
        IntegerCase{"PortAtTop", "65535", 0, 65535, 65535},
        IntegerCase{"PortPastTop", "65536", 0, 65535, std::nullopt, kOutOfRange},
        IntegerCase{"BelowLeast", "0", 1, 9, std::nullopt, kOutOfRange},
        IntegerCase{"NegativeBelowLeast", "-11", -10, 10, std::nullopt, kOutOfRange}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv
