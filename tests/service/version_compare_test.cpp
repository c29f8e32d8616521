// Version comparison: numeric per component, zero padding, lenient component reading.
#include "base/text.h"
#include "service/version_compare.h"

#include <gtest/gtest.h>

#include <limits>

namespace qv {
namespace {

struct CompareCase {
    const char *receiver;
    std::optional<std::string_view> other;
    int expected;
};

class Compare : public ::testing::TestWithParam<CompareCase> {};

TEST_P(Compare, OrdersAndPredicatesAgree) {
    const auto &c = GetParam();
    EXPECT_EQ(static_cast<int>(compareToVersion(c.receiver, c.other)), c.expected);
    EXPECT_EQ(isOlderThanVersion(c.receiver, c.other), c.expected < 0);
    EXPECT_EQ(isNewerThanVersion(c.receiver, c.other), c.expected > 0);
    EXPECT_EQ(isEqualToVersion(c.receiver, c.other), c.expected == 0);
    EXPECT_EQ(isEqualOrOlderThanVersion(c.receiver, c.other), c.expected <= 0);
    EXPECT_EQ(isEqualOrNewerThanVersion(c.receiver, c.other), c.expected >= 0);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, Compare,
    ::testing::Values(CompareCase{"1.2", "1.2", 0}, CompareCase{"1.2", "1.2.0", 0}, CompareCase{"1.9", "1.10", -1},
                      CompareCase{"2.0", "1.99.99", 1}, CompareCase{"1.0a", "1.0b", 0}, CompareCase{"", "0", 0},
                      CompareCase{"", "0.1", -1}, CompareCase{"1", std::nullopt, 1},
                      CompareCase{"0.0", std::nullopt, 0}, CompareCase{"-1", "0", -1}, CompareCase{"1..2", "1.0.2", 0},
                      CompareCase{"1.2b", "1.10", -1}, CompareCase{" 3", "+3", 0}, CompareCase{"1.0.0.1", "1", 1},
                      CompareCase{"a", "0", 0}, CompareCase{"99999999999999999999", "9223372036854775807", 0},
                      CompareCase{"1.-0", "1", 0}, CompareCase{".", "", 0}));

struct IntegerCase {
    const char *text;
    std::int64_t expected;
};

class LenientInteger : public ::testing::TestWithParam<IntegerCase> {};

TEST_P(LenientInteger, ReadsLikeThePlatform) {
    EXPECT_EQ(lenientInteger(GetParam().text), GetParam().expected);
}

constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
constexpr auto kMin = std::numeric_limits<std::int64_t>::min();

INSTANTIATE_TEST_SUITE_P(Texts, LenientInteger,
                         ::testing::Values(IntegerCase{"42", 42}, IntegerCase{" \t\n42x", 42}, IntegerCase{"-7", -7},
                                           IntegerCase{"+7", 7}, IntegerCase{"", 0}, IntegerCase{"x1", 0},
                                           IntegerCase{"- 1", 0}, IntegerCase{"--1", 0}, IntegerCase{"2b", 2},
                                           IntegerCase{"007", 7}, IntegerCase{"9223372036854775807", kMax},
                                           IntegerCase{"9223372036854775808", kMax},
                                           IntegerCase{"-9223372036854775808", kMin},
                                           IntegerCase{"-99999999999999999999", kMin}, IntegerCase{"1 2", 1}));

} // namespace
} // namespace qv
