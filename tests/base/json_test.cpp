// JSON reader/writer and Value semantics: round trips, rejection of malformed text, key order and equality.
#include "base/json.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

struct RoundTripCase {
    const char *input;
    const char *compact;
};

class JsonRoundTrip : public ::testing::TestWithParam<RoundTripCase> {};

TEST_P(JsonRoundTrip, ParsesAndWritesCompactly) {
    const auto value = parseJson(GetParam().input);
    ASSERT_TRUE(value) << value.error().detail;
    EXPECT_EQ(toJson(*value), GetParam().compact);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, JsonRoundTrip,
    ::testing::Values(RoundTripCase{" { \"b\" : 1 , \"a\" : [true,false,null] } ", R"({"b":1,"a":[true,false,null]})"},
                      RoundTripCase{R"("tab\tquote\"slash\/u\u00e9\ud83d\ude00")",
                                    "\"tab\\tquote\\\"slash/u\xC3\xA9\xF0\x9F\x98\x80\""},
                      RoundTripCase{"-0.5", "-0.5"}, RoundTripCase{"1e3", "1000"},
                      RoundTripCase{"9223372036854775807", "9223372036854775807"},
                      RoundTripCase{"9223372036854775808", "9.2233720368547758e+18"},
                      RoundTripCase{R"({"k":{"k":{}}})", R"({"k":{"k":{}}})"}, RoundTripCase{"[]", "[]"}));

class JsonRejects : public ::testing::TestWithParam<const char *> {};

TEST_P(JsonRejects, MalformedText) {
    const auto value = parseJson(GetParam());
    ASSERT_FALSE(value);
    EXPECT_EQ(value.error().code, ErrorCode::MalformedJson);
    EXPECT_FALSE(value.error().detail.empty());
}

INSTANTIATE_TEST_SUITE_P(Malformed, JsonRejects,
                         ::testing::Values("", "{", "[1,]", "{\"a\" 1}", "01", "1.", "-", "\"\\x\"", "\"\\ud800\"",
                                           "tru", "[1] 2", "\"unterminated", "{1:2}", "\"a\nb\"", "1e999"));

TEST(JsonDepth, DeepNestingIsRejectedNotRecursed) {
    const std::string deep(100000, '[');
    EXPECT_FALSE(parseJson(deep));
    std::string ok(kMaxJsonDepth, '[');
    ok += std::string(kMaxJsonDepth, ']');
    EXPECT_TRUE(parseJson(ok));
}

TEST(ValueSemantics, NumbersCompareByValueAndDictionaryKeepsOrder) {
    EXPECT_EQ(Value(3), Value(3.0));
    EXPECT_EQ(Value(3).hash(), Value(3.0).hash());
    EXPECT_FALSE(Value(1) == Value(true));
    EXPECT_FALSE(Value("1") == Value(1));

    Dictionary dictionary;
    dictionary.set(Value(std::int64_t{284882215}), Value("numeric key"));
    dictionary.set(Value("com.example.app"), Value("string key"));
    dictionary.set(Value(std::int64_t{284882215}), Value("replaced in place"));
    ASSERT_EQ(dictionary.size(), 2U);
    EXPECT_EQ(*dictionary.entries()[0].second.asString(), "replaced in place");
    EXPECT_TRUE(dictionary.erase(Value(284882215.0)));
    EXPECT_FALSE(dictionary.contains(Value(std::int64_t{284882215})));
    EXPECT_TRUE(dictionary.contains(Value("com.example.app")));

    Dictionary reordered;
    reordered.set(Value("com.example.app"), Value("string key"));
    EXPECT_EQ(Value(dictionary), Value(reordered));
}

struct PathCase {
    const char *name;
    const char *document;
    const char *expected; // nullptr: the lookup yields null
};

class ValuePath : public ::testing::TestWithParam<PathCase> {};

TEST_P(ValuePath, FollowsTheOfferVersionOrYieldsNull) {
    const auto value = parseJson(GetParam().document);
    ASSERT_TRUE(value);
    const Value &display = (*value)["offers"][0]["version"]["display"];
    if (GetParam().expected == nullptr) {
        EXPECT_TRUE(display.isNull());
    } else {
        ASSERT_NE(display.asString(), nullptr);
        EXPECT_EQ(*display.asString(), GetParam().expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, ValuePath,
                         ::testing::Values(PathCase{"Present", R"({"offers":[{"version":{"display":"2.0"}}]})", "2.0"},
                                           PathCase{"NoOffers", R"({"version":"2.0"})", nullptr},
                                           PathCase{"EmptyOffers", R"({"offers":[]})", nullptr},
                                           PathCase{"OffersNotAList", R"({"offers":{"0":{}}})", nullptr},
                                           PathCase{"VersionNotADictionary", R"({"offers":[{"version":"2.0"}]})",
                                                    nullptr},
                                           PathCase{"NotADictionary", R"([1,2])", nullptr}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv
