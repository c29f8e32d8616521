// The regex facade: ICU semantics, byte offsets into UTF-8 subjects, template expansion and thread safety.
#include "base/regex.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace qv {
namespace {

TEST(RegexCompile, InvalidPatternsGiveNothing) {
    for (const char *pattern : {"(", "[a-", "a{2,1}", "\\", "(?<name", "*a"}) {
        EXPECT_EQ(Regex::compile(pattern), nullptr) << pattern;
    }
    const auto regex = Regex::compile("(a)(b)?");
    ASSERT_NE(regex, nullptr);
    EXPECT_EQ(regex->groupCount(), 2U);
}

struct ReplaceCase {
    const char *pattern;
    RegexCase matching;
    const char *subject;
    const char *replacementTemplate;
    const char *expected;
};

class RegexReplace : public ::testing::TestWithParam<ReplaceCase> {};

TEST_P(RegexReplace, ExpandsTemplate) {
    const auto &c = GetParam();
    const auto regex = Regex::compile(c.pattern, c.matching);
    ASSERT_NE(regex, nullptr);
    EXPECT_EQ(regex->replaceAll(c.subject, c.replacementTemplate), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Templates, RegexReplace,
    ::testing::Values(
        // A reference to a group the pattern lacks expands to nothing, neither kept literally nor an error.
        ReplaceCase{"k=(\\d*)", RegexCase::Sensitive, "k=1&k=22", "K=9$2", "K=9&K=9"},
        ReplaceCase{"(a)(b)?", RegexCase::Sensitive, "ac ab", "[$2$1]", "[a]c [ba]"},
        // "$" takes further digits only while they still name a group.
        ReplaceCase{"(a)", RegexCase::Sensitive, "a", "$10", "a0"},
        ReplaceCase{"(x)", RegexCase::Sensitive, "x", "\\$1\\\\", "$1\\"},
        ReplaceCase{"abc", RegexCase::Insensitive, "ABC aBc abc", "-", "- - -"},
        ReplaceCase{"abc", RegexCase::Sensitive, "ABC aBc abc", "-", "ABC aBc -"},
        ReplaceCase{"x*", RegexCase::Sensitive, "ab", "-", "-a-b-"},
        ReplaceCase{"\\d+", RegexCase::Sensitive,
                    "\xC3\xA9"
                    "12\xE2\x82\xAC"
                    "3",
                    "<$0>", "\xC3\xA9<12>\xE2\x82\xAC<3>"},
        ReplaceCase{"\\d+", RegexCase::Sensitive, "", "-", ""}));

struct OffsetCase {
    const char *subject;
    std::size_t start;
    std::size_t length;
};

class RegexOffsets : public ::testing::TestWithParam<OffsetCase> {};

// Groups are byte ranges of the UTF-8 subject whatever the characters before them, malformed bytes included.
TEST_P(RegexOffsets, AreUtf8ByteRanges) {
    static const auto regex = Regex::compile("id=(\\d+)");
    const auto match = regex->firstMatch(GetParam().subject);
    ASSERT_TRUE(match);
    ASSERT_EQ(match->groups.size(), 2U);
    EXPECT_EQ(match->groups[1].first, GetParam().start);
    EXPECT_EQ(match->groups[1].second, GetParam().length);
    EXPECT_EQ(match->group(GetParam().subject, 1), "42");
}

INSTANTIATE_TEST_SUITE_P(Subjects, RegexOffsets,
                         ::testing::Values(OffsetCase{"id=42", 3, 2}, OffsetCase{"\xC3\xA9id=42", 5, 2},
                                           OffsetCase{"\xF0\x9F\x98\x80id=42", 7, 2}, OffsetCase{"\xFF\xC3id=42", 5, 2},
                                           OffsetCase{"\xE2\x82id=42", 5, 2}, OffsetCase{"\xED\xA0\x80id=42", 6, 2}));

TEST(RegexMatch, GroupThatDidNotTakePartReadsEmpty) {
    const auto regex = Regex::compile("(a)|(b)");
    const auto match = regex->firstMatch("b");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->groups[1].first, RegexMatch::kNoPosition);
    EXPECT_EQ(match->group("b", 1), "");
    EXPECT_EQ(match->group("b", 2), "b");
    EXPECT_EQ(match->group("b", 7), "");
    EXPECT_FALSE(regex->firstMatch("c"));
}

TEST(RegexThreads, OneCompiledPatternServesManyThreads) {
    const auto regex = Regex::compile("n=(\\d+)");
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::vector<int> mismatches(kThreads, 0);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const std::string subject = "x&n=" + std::to_string(t * kRounds + i) + "&y";
                const auto match = regex->firstMatch(subject);
                if (!match || match->group(subject, 1) != std::to_string(t * kRounds + i)) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(kThreads, 0));
}

} // namespace
} // namespace qv
