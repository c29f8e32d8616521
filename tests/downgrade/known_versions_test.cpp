// Known-versions list: mapping of the service's reply, numeric newest-first ordering and failure reporting.
#include "downgrade/known_versions.h"

#include <gtest/gtest.h>

#include "base/json.h"
#include "fakes/fake_http.h"
#include "fakes/fake_queue.h"

namespace qv {
namespace {

std::vector<std::string> identifiersOf(const std::vector<QVVersion> &versions) {
    std::vector<std::string> identifiers;
    identifiers.reserve(versions.size());
    for (const auto &version : versions) {
        identifiers.push_back(version.external_identifier.value_or("<none>"));
    }
    return identifiers;
}

struct OrderCase {
    const char *reply;
    std::vector<std::string> order;
};
class NewestFirst : public ::testing::TestWithParam<OrderCase> {};
TEST_P(NewestFirst, ComparesIdentifiersAsIntegers) {
    auto versions = versionsFromJson(*parseJson(GetParam().reply));
    ASSERT_TRUE(versions);
    sortNewestFirst(*versions);
    EXPECT_EQ(identifiersOf(*versions), GetParam().order);
}
INSTANTIATE_TEST_SUITE_P(
    Replies, NewestFirst,
    ::testing::Values(
        OrderCase{R"([{"external_identifier":"9"},{"external_identifier":"100"},{"external_identifier":"10"}])",
                  {"100", "10", "9"}},
        OrderCase{R"([{"external_identifier":"beta"},{"external_identifier":"5"},{}])", {"5", "beta", "<none>"}},
        OrderCase{R"([{"external_identifier":"-3"},{"external_identifier":" 12x"},{"external_identifier":7}])",
                  {" 12x", "7", "-3"}}));

TEST(KnownVersionsMapping, KeepsObjectsThatLackEitherKey) {
    const auto versions = versionsFromJson(*parseJson(R"([{"bundle_version":"1.0"},{"external_identifier":"5"},
        {"bundle_version":null,"external_identifier":"6","extra":true}])"));
    ASSERT_TRUE(versions);
    const std::vector<QVVersion> expected{{"1.0", std::nullopt}, {std::nullopt, "5"}, {std::nullopt, "6"}};
    EXPECT_EQ(*versions, expected);
}

class UnmappableReply : public ::testing::TestWithParam<const char *> {};
TEST_P(UnmappableReply, YieldsNoList) {
    EXPECT_FALSE(versionsFromJson(*parseJson(GetParam())));
}
INSTANTIATE_TEST_SUITE_P(Replies, UnmappableReply,
                         ::testing::Values(R"({"bundle_version":"1"})", R"([1])", R"([{"bundle_version":["1"]}])",
                                           R"("text")"));

struct FetchCase {
    HttpResult reply;
    std::vector<std::string> order;
    std::optional<ErrorCode> failure;
};
class FetchKnownVersions : public ::testing::TestWithParam<FetchCase> {};
TEST_P(FetchKnownVersions, CompletesOnTheMainQueue) {
    FakeHttp http;
    FakeQueues queues;
    http.reply("http://svc/v1/apple_apps/42/versions", GetParam().reply);
    std::optional<KnownVersions> delivered;
    fetchKnownVersions(http, queues, "http://svc/", "42", [&](KnownVersions known) { delivered = std::move(known); });
    queues.globalQueue().drain();
    EXPECT_FALSE(delivered);
    queues.mainQueue().drain();
    ASSERT_TRUE(delivered);
    EXPECT_EQ(identifiersOf(delivered->valueOr({})), GetParam().order);
    EXPECT_EQ(delivered->ok() ? std::nullopt : std::optional(delivered->error().code), GetParam().failure);
    EXPECT_EQ(http.fetched().at(0).method, "GET");
}
INSTANTIATE_TEST_SUITE_P(
    Replies, FetchKnownVersions,
    ::testing::Values(
        FetchCase{{200, R"([{"external_identifier":"1"},{"external_identifier":"2"}])", {}}, {"2", "1"}, {}},
        FetchCase{{200, "[]", {}}, {}, {}}, FetchCase{{200, "not json", {}}, {}, ErrorCode::MalformedReply},
        FetchCase{{200, R"({"error":"x"})", {}}, {}, ErrorCode::MalformedReply},
        FetchCase{{500, R"([{"external_identifier":"1"}])", {}}, {}, ErrorCode::ServiceRefused},
        FetchCase{{0, {}, std::string("timed out")}, {}, ErrorCode::ServiceUnreachable}));

TEST(KnownVersionsJson, LeavesMissingPropertiesOut) {
    EXPECT_EQ(toJson(versionsToJson({{"1.0", "5"}, {std::nullopt, "4"}})),
              R"([{"bundle_version":"1.0","external_identifier":"5"},{"external_identifier":"4"}])");
}

} // namespace
} // namespace qv
