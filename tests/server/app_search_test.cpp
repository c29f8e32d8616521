// How names and queries become search words, and which queries are refused before any database sees them.
#include "server/app_search.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qv::server {
namespace {

struct WordsCase {
    const char *name;
    std::string text;
    std::vector<std::string> words;
};
class SearchWords : public ::testing::TestWithParam<WordsCase> {};
TEST_P(SearchWords, AreFoldedRunsOfLettersAndDigits) {
    EXPECT_EQ(searchWordsOf(GetParam().text), GetParam().words);
}
INSTANTIATE_TEST_SUITE_P(
    Texts, SearchWords,
    ::testing::Values(WordsCase{"PunctuationSeparates", "com.example-app_2", {"com", "example", "app", "2"}},
                      WordsCase{"CaseIsFolded", "NoTeS", {"notes"}},
                      WordsCase{"LettersBeyondAscii", "Ärger Ωmega", {"ärger", "ωmega"}},
                      WordsCase{"MarkupIsPunctuation", "<script>x</script>", {"script", "x", "script"}},
                      WordsCase{"MalformedBytesSeparate",
                                "ab\xff"
                                "cd",
                                {"ab", "cd"}},
                      WordsCase{
                          "LongWordKeepsItsFirstBytesOnly", std::string(70, 'a') + " b", {std::string(64, 'a'), "b"}},
                      // the two-byte letter would end one byte past the cap, so the word stops before it
                      WordsCase{"LongWordIsCutAtACharacter", std::string(63, 'a') + "é", {std::string(63, 'a')}},
                      WordsCase{"NothingButSpaces", "  \t ", {}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(SearchTerms, AreTheDistinctWordsOfTitleThenBundleIdentifierUpToTheCap) {
    EXPECT_EQ(searchTermsOf("com.example.notes", "Notes & More Notes"),
              (std::vector<std::string>{"notes", "more", "com", "example"}));
    std::string longTitle;
    for (int i = 0; i < 40; ++i) {
        longTitle += "w" + std::to_string(i) + " ";
    }
    EXPECT_EQ(searchTermsOf("com.example", longTitle).size(), kMaxSearchTermsPerApp);
}

struct QueryCase {
    const char *name;
    std::string query;
    std::vector<std::string> words; // empty: refused
    std::optional<std::int64_t> storeIdentifier;
};
class SearchQueries : public ::testing::TestWithParam<QueryCase> {};
TEST_P(SearchQueries, ParseOrAreRefused) {
    const auto search = parseAppSearch(GetParam().query);
    if (GetParam().words.empty()) {
        ASSERT_FALSE(search);
        EXPECT_EQ(search.error().code, ErrorCode::BadRequest);
        return;
    }
    ASSERT_TRUE(search) << search.error().describe();
    EXPECT_EQ(search->words, GetParam().words);
    EXPECT_EQ(search->storeIdentifier, GetParam().storeIdentifier);
}
INSTANTIATE_TEST_SUITE_P(
    Queries, SearchQueries,
    ::testing::Values(
        QueryCase{"Words", "Google maps", {"google", "maps"}, std::nullopt},
        QueryCase{"RepeatedWordsCountOnce", "maps MAPS", {"maps"}, std::nullopt},
        QueryCase{"DigitsAreAStoreIdentifierToo", " 284882215 ", {"284882215"}, 284882215},
        QueryCase{
            "DigitsBeyondAnIdentifierAreAWordOnly", "99999999999999999999", {"99999999999999999999"}, std::nullopt},
        QueryCase{"Empty", "", {}, std::nullopt}, QueryCase{"OnlyPunctuation", "!!! ...", {}, std::nullopt},
        QueryCase{"TooLong", std::string(kMaxSearchQueryBytes + 1, 'a'), {}, std::nullopt},
        QueryCase{"LongestAllowed",
                  std::string(kMaxSearchQueryBytes, 'a'),
                  {std::string(kMaxSearchTermBytes, 'a')},
                  std::nullopt},
        QueryCase{"TooManyWords", "a b c d e f g h i", {}, std::nullopt},
        QueryCase{"NotUtf8", "caf\xe9", {}, std::nullopt},
        QueryCase{"HoldsNul", std::string("a\0b", 3), {}, std::nullopt}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(SearchWordBound, IsAboveEveryWordWithThePrefixAndBelowTheNextPrefix) {
    const std::string bound = searchWordBound("note");
    for (const std::string inside : {"note", "notes", "note\xf4\x8f\xbf\xbe", "notezzzz"}) {
        EXPECT_TRUE(inside >= "note" && inside < bound) << inside;
    }
    for (const std::string outside : {"not", "notf", "nou"}) {
        EXPECT_FALSE(outside >= "note" && outside < bound) << outside;
    }
}

} // namespace
} // namespace qv::server
