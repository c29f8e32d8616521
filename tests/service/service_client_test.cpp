// Service client against the fake Http port: exact requests, report preconditions, search events and lookups.
#include "service/service_client.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

#include "base/json.h"
#include "fakes/fake_http.h"
#include "fakes/fake_preferences.h"
#include "fakes/fake_queue.h"

namespace qv {
namespace {

const char *const kBase = "https://versions.example/api/";
const char *const kLookupBase = "https://lookup.example/";

Value json(const char *text) {
    auto value = parseJson(text);
    EXPECT_TRUE(value) << text;
    return value ? *value : Value();
}

class ServiceClientTest : public ::testing::Test {
  protected:
    FakeHttp http;
    FakeQueues queues;
    FakePreferences preferences;
    ServiceClient client{http, queues, preferences, ServiceEndpoints::make(kBase, kLookupBase)};

    std::string onlySentBody() {
        const auto sent = http.sent();
        EXPECT_EQ(sent.size(), 1U);
        return sent.empty() || !sent[0].body ? std::string() : *sent[0].body;
    }
};

// ---- the POST itself ----

TEST(JsonPost, CarriesMethodHeadersTimeoutAndCompactBody) {
    const HttpRequest request = makeJsonPost("v1/events", "http://h/base", json(R"({ "a" : [1, "x"] })"));
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, "http://h/base/v1/events");
    EXPECT_EQ(request.timeoutSeconds, 60);
    const std::vector<std::pair<std::string, std::string>> headers{{"Content-Type", "application/json"},
                                                                   {"Accept", "application/json"}};
    EXPECT_EQ(request.headers, headers);
    EXPECT_EQ(request.body, R"({"a":[1,"x"]})");
}

struct UrlCase {
    const char *base;
    const char *path;
    const char *url;
};
class PathComponent : public ::testing::TestWithParam<UrlCase> {};
TEST_P(PathComponent, IsJoinedWithOneSlashAndEscaped) {
    EXPECT_EQ(appendingPathComponent(GetParam().base, GetParam().path), GetParam().url);
}
INSTANTIATE_TEST_SUITE_P(Urls, PathComponent,
                         ::testing::Values(UrlCase{"http://h/", "v1/events", "http://h/v1/events"},
                                           UrlCase{"http://h", "v1/events", "http://h/v1/events"},
                                           UrlCase{"http://h/", "v1/apple_apps/a b?/versions",
                                                   "http://h/v1/apple_apps/a%20b%3F/versions"},
                                           UrlCase{"http://h/", "x/\xC3\xA9%;@", "http://h/x/%C3%A9%25;@"}));

class BodyWithoutJsonForm : public ::testing::TestWithParam<Value> {};
TEST_P(BodyWithoutJsonForm, GoesOutWithoutBody) {
    EXPECT_FALSE(makeJsonPost("v1/events", kBase, GetParam()).body.has_value());
}
INSTANTIATE_TEST_SUITE_P(Values, BodyWithoutJsonForm,
                         ::testing::Values(Value("top-level text"), Value(1),
                                           Value(Dictionary{{Value(1), Value("numeric key")}}),
                                           Value(Array{Value(Bytes{1, 2})}),
                                           Value(Dictionary{{"when", Value(Date{1})}}),
                                           Value(Array{Value(std::numeric_limits<double>::quiet_NaN())})));

// ---- the service address a person may set ----

struct AddressCase {
    const char *name;
    const char *address;
    const char *refusal; // part of the one-line reason, or nullptr when the address is taken
};
class ServiceAddress : public ::testing::TestWithParam<AddressCase> {};
TEST_P(ServiceAddress, IsAnAbsoluteHttpUrlEndingInASlash) {
    const Result<void> checked = checkServiceAddress(GetParam().address);
    if (GetParam().refusal == nullptr) {
        EXPECT_TRUE(checked.ok()) << checked.error().describe();
        return;
    }
    ASSERT_FALSE(checked.ok());
    EXPECT_EQ(checked.error().code, ErrorCode::NotServiceAddress);
    EXPECT_NE(checked.error().describe().find(GetParam().refusal), std::string::npos) << checked.error().describe();
}
INSTANTIATE_TEST_SUITE_P(
    Addresses, ServiceAddress,
    ::testing::Values(AddressCase{"Https", "https://versions.example.org/", nullptr},
                      AddressCase{"HttpPortAndPath", "http://192.168.1.20:8080/verdigo/", nullptr},
                      AddressCase{"UpperCaseScheme", "HTTPS://Versions.Example.org/", nullptr},
                      AddressCase{"Ipv6WithPort", "http://[fd00::1]:8080/", nullptr},
                      AddressCase{"Empty", "", "start with http:// or https://"},
                      AddressCase{"OtherScheme", "ftp://versions.example.org/", "start with http:// or https://"},
                      AddressCase{"Relative", "versions.example.org/", "start with http:// or https://"},
                      AddressCase{"NoTrailingSlash", "https://versions.example.org", "end in \"/\""},
                      AddressCase{"PathWithoutTrailingSlash", "https://versions.example.org/api", "end in \"/\""},
                      AddressCase{"NoHost", "https:///", "names no host"},
                      AddressCase{"EmptyPort", "https://versions.example.org:/", "port"},
                      AddressCase{"PortZero", "https://versions.example.org:0/", "1 to 65535"},
                      AddressCase{"PortTooLarge", "https://versions.example.org:65536/", "1 to 65535"},
                      AddressCase{"PortNotANumber", "https://versions.example.org:80a/", "1 to 65535"},
                      AddressCase{"Space", "https://versions.example.org/my service/", "spaces"},
                      AddressCase{"NonAscii", "https://b\xC3\xA9ta.example/", "non-ASCII"},
                      AddressCase{"Query", "https://versions.example.org/?v=1/", "query"},
                      AddressCase{"Fragment", "https://versions.example.org/#/", "fragment"},
                      AddressCase{"User", "https://me@versions.example.org/", "user"},
                      AddressCase{"UnderscoreInHost", "https://my_host/", "the host may hold only"},
                      AddressCase{"OpenIpv6", "http://[fd00::1/", "not closed"},
                      AddressCase{"JunkAfterIpv6", "http://[fd00::1]x/", "only a port"}),
    [](const auto &info) { return std::string(info.param.name); });

struct ChosenBaseCase {
    const char *name;
    std::optional<Value> stored;
    const char *base;
};
class ChosenBase : public ServiceClientTest, public ::testing::WithParamInterface<ChosenBaseCase> {};
TEST_P(ChosenBase, IsTheStoredAddressWhenItIsOneElseTheBuiltIn) {
    if (GetParam().stored) {
        preferences.set(std::string(kServiceAddressKey), *GetParam().stored);
    }
    EXPECT_EQ(client.apiBaseUrl(), GetParam().base);
    client.postWithParameters(Value(Dictionary{{"name", Value("search")}}));
    EXPECT_EQ(http.sent().at(0).url, std::string(GetParam().base) + "v1/events");
}
INSTANTIATE_TEST_SUITE_P(
    Stored, ChosenBase,
    ::testing::Values(ChosenBaseCase{"Nothing", std::nullopt, kBase}, ChosenBaseCase{"Empty", Value(""), kBase},
                      ChosenBaseCase{"OwnService", Value("http://10.0.0.2:8080/"), "http://10.0.0.2:8080/"},
                      ChosenBaseCase{"NoAddress", Value("http://10.0.0.2:8080"), kBase},
                      ChosenBaseCase{"NoText", Value(1), kBase}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- version report from a store item ----

const char *const kStoreItem = R"({"bundleId":"com.example.app","id":284882215,"name":"Example",
  "offers":[{"version":{"display":"2.1","externalId":8001}},{"version":{"display":"2.0","externalId":"7001"}}]})";

TEST_F(ServiceClientTest, StoreItemReportCarriesEveryOfferVersion) {
    EXPECT_EQ(client.cacheAppWithInfo(json(kStoreItem)), ReportOutcome::Sent);
    EXPECT_EQ(http.sent().at(0).url, "https://versions.example/api/v1/apple_apps/284882215/versions");
    EXPECT_EQ(onlySentBody(),
              R"({"bundle_id":"com.example.app","identifier":284882215,"title":"Example",)"
              R"("versions":[{"display":"2.1","externalId":8001},{"display":"2.0","externalId":"7001"}]})");
}

struct IncompleteItem {
    const char *item;
    ReportOutcome outcome;
};
class IncompleteStoreItem : public ServiceClientTest, public ::testing::WithParamInterface<IncompleteItem> {};
TEST_P(IncompleteStoreItem, SendsNothing) {
    EXPECT_EQ(client.cacheAppWithInfo(json(GetParam().item)), GetParam().outcome);
    EXPECT_TRUE(http.sent().empty());
}
INSTANTIATE_TEST_SUITE_P(
    Items, IncompleteStoreItem,
    ::testing::Values(
        IncompleteItem{R"({"bundleId":"b","id":1,"name":"n"})", ReportOutcome::MissingVersion},
        IncompleteItem{R"({"bundleId":"b","id":1,"name":"n","offers":[]})", ReportOutcome::MissingVersion},
        IncompleteItem{R"({"bundleId":"b","id":1,"name":"n","offers":[{"price":0}]})", ReportOutcome::MissingVersion},
        IncompleteItem{R"({"id":1,"name":"n","offers":[{"version":{}}]})", ReportOutcome::MissingField},
        IncompleteItem{R"({"bundleId":"b","id":null,"name":"n","offers":[{"version":{}}]})",
                       ReportOutcome::MissingField},
        IncompleteItem{R"({"bundleId":"b","id":1,"name":"n","offers":[{"version":{}},{}]})",
                       ReportOutcome::MissingField},
        IncompleteItem{R"([1])", ReportOutcome::MissingVersion}));

// ---- version report from installed-app metadata ----

struct DisplayCase {
    const char *bundleVersionField; // JSON fragment, or "" for none
    const char *shortVersion;
    const char *display;
};
class DisplayVersion : public ServiceClientTest, public ::testing::WithParamInterface<DisplayCase> {};
TEST_P(DisplayVersion, LowerDottedVersionWins) {
    const std::string metadata = std::string(R"({"softwareVersionBundleId":"com.example.app","itemId":"42",)") +
                                 R"("itemName":"Example","softwareVersionExternalIdentifier":900,)" +
                                 GetParam().bundleVersionField + R"("bundleShortVersionString":")" +
                                 GetParam().shortVersion + "\"}";
    ASSERT_EQ(client.cacheAppWithMetadata(json(metadata.c_str())), ReportOutcome::Sent);
    EXPECT_EQ(http.sent().at(0).url, "https://versions.example/api/v1/apple_apps/42/versions");
    EXPECT_EQ(onlySentBody(), std::string(R"({"bundle_id":"com.example.app","identifier":"42","title":"Example",)") +
                                  R"("versions":[{"display":")" + GetParam().display + R"(","externalId":900}]})");
}
INSTANTIATE_TEST_SUITE_P(Versions, DisplayVersion,
                         ::testing::Values(DisplayCase{R"("bundleVersion":"1.2.0",)", "1.3", "1.2.0"},
                                           DisplayCase{R"("bundleVersion":"1.4",)", "1.3", "1.3"},
                                           DisplayCase{R"("bundleVersion":"250",)", "1.3", "1.3"},
                                           DisplayCase{R"("bundleVersion":250,)", "1.3", "1.3"},
                                           DisplayCase{R"("bundleVersion":"1.3.0",)", "1.3", "1.3"},
                                           DisplayCase{"", "1.3", "1.3"}));

class IncompleteMetadata : public ServiceClientTest, public ::testing::WithParamInterface<IncompleteItem> {};
TEST_P(IncompleteMetadata, SendsNothing) {
    EXPECT_EQ(client.cacheAppWithMetadata(json(GetParam().item)), GetParam().outcome);
    EXPECT_TRUE(http.sent().empty());
}
INSTANTIATE_TEST_SUITE_P(
    Metadata, IncompleteMetadata,
    ::testing::Values(
        IncompleteItem{
            R"({"softwareVersionBundleId":"b","itemId":1,"itemName":"n","softwareVersionExternalIdentifier":9})",
            ReportOutcome::MissingVersion},
        IncompleteItem{R"({"softwareVersionBundleId":"b","itemId":1,"itemName":"n","bundleShortVersionString":"1"})",
                       ReportOutcome::MissingVersion},
        IncompleteItem{
            R"({"itemId":1,"itemName":"n","bundleShortVersionString":"1","softwareVersionExternalIdentifier":9})",
            ReportOutcome::MissingField},
        IncompleteItem{
            R"({"softwareVersionBundleId":"b","itemId":1,"bundleShortVersionString":"1","softwareVersionExternalIdentifier":9})",
            ReportOutcome::MissingField}));

TEST_F(ServiceClientTest, PurchaseDictionaryIsNeverReported) {
    client.cacheAppWithPurchaseDictionary(json(kStoreItem));
    queues.drainAll();
    EXPECT_TRUE(http.sent().empty());
}

// ---- the crowdsourcing switch ----

const char *const kSearchPage = "<input class=\"q\">maps</input>\n"
                                "<a href=\"/app/x/id389801252?mt=8\">A</a><a href=\"/app/y/id389801252?mt=8\">A</a>\n"
                                "<a href=\"/app/z/id1234?mt=8\">B</a>";

struct SwitchCase {
    Value stored;
    bool reportsSent;
};
class AppCachingSwitch : public ServiceClientTest, public ::testing::WithParamInterface<SwitchCase> {};
TEST_P(AppCachingSwitch, StopsVersionReportsButNotSearchEvents) {
    preferences.set("disableAppCaching_QV", GetParam().stored);
    client.cacheAppWithInfo(json(kStoreItem));
    client.cacheAppWithMetadata(json(R"({"softwareVersionBundleId":"b","itemId":1,"itemName":"n",
        "bundleShortVersionString":"1.0","softwareVersionExternalIdentifier":9})"));
    EXPECT_EQ(http.sent().size(), GetParam().reportsSent ? 2U : 0U);
    client.appsForHTMLString(std::string(kSearchPage));
    queues.drainAll();
    ASSERT_FALSE(http.sent().empty());
    EXPECT_EQ(http.sent().back().url, "https://versions.example/api/v1/events");
}
INSTANTIATE_TEST_SUITE_P(Stored, AppCachingSwitch,
                         ::testing::Values(SwitchCase{Value(true), false}, SwitchCase{Value(1), false},
                                           SwitchCase{Value("YES"), false}, SwitchCase{Value(false), true},
                                           SwitchCase{Value("NO"), true}, SwitchCase{Value(), true}));

// ---- search events ----

TEST_F(ServiceClientTest, SearchEventRanksDistinctAppsOnTheWorkQueue) {
    client.setExtraAttribute("query", "replaced");
    client.setExtraAttribute("country", "fr");
    client.appsForHTMLString(std::string(kSearchPage));
    EXPECT_TRUE(http.sent().empty()) << "parsing must wait for the work queue";
    EXPECT_EQ(queues.serialLabels(), std::vector<std::string>{"com.mycompany.myqueue"});
    queues.serialQueues().drain();
    EXPECT_EQ(onlySentBody(), R"({"name":"search","attributes":{"query":"replaced","results":[)"
                              R"({"appId":"389801252","rank":1},{"appId":"1234","rank":2}],"country":"fr"}})");
}

TEST_F(ServiceClientTest, SameQueryIsSentAgainOnlyWhenItsResultCountChanges) {
    const std::string twoApps = kSearchPage;
    const std::string threeApps = twoApps + "<a href=\"/id77?mt=8\">C</a>";
    for (const auto *page : {&twoApps, &twoApps, &threeApps, &threeApps, &twoApps}) {
        client.appsForHTMLString(*page);
    }
    queues.drainAll();
    EXPECT_EQ(http.sent().size(), 3U);
}

class SilentSearchPage : public ServiceClientTest, public ::testing::WithParamInterface<std::optional<std::string>> {};
TEST_P(SilentSearchPage, SendsNothing) {
    client.appsForHTMLString(GetParam());
    queues.drainAll();
    EXPECT_TRUE(http.sent().empty());
}
INSTANTIATE_TEST_SUITE_P(Pages, SilentSearchPage,
                         ::testing::Values(std::nullopt, std::optional<std::string>("<a href=\"/id1?mt=8\">x</a>"),
                                           std::optional<std::string>("<input>q</input><a href=\"/id1?mt=9\">x</a>"),
                                           std::optional<std::string>("<input>\nq</input><a href=\"/id1?mt=8\">")));

struct QueryCase {
    const char *html;
    std::optional<std::string> query;
};
class SearchQuery : public ::testing::TestWithParam<QueryCase> {};
TEST_P(SearchQuery, IsTheTextOfTheLastInputOnTheFirstMatchingLine) {
    EXPECT_EQ(queryStringFromHTML(std::string_view(GetParam().html)), GetParam().query);
}
INSTANTIATE_TEST_SUITE_P(Pages, SearchQuery,
                         ::testing::Values(QueryCase{"<input type=\"search\">angry birds</input>", "angry birds"},
                                           QueryCase{"<input>a</input><input>b</input>", "b"},
                                           QueryCase{"<INPUT>a</INPUT>", std::nullopt},
                                           QueryCase{"<input>a\n</input>", std::nullopt},
                                           QueryCase{"x\n<input></input>", ""}));

// ---- store lookup ----

struct LookupCase {
    HttpResult reply;
    std::string bundleId;
};
class Lookup : public ServiceClientTest, public ::testing::WithParamInterface<LookupCase> {};
TEST_P(Lookup, DeliversTheBundleIdOrEmptyOnTheMainQueue) {
    http.reply("https://lookup.example/lookup?id=284882215", GetParam().reply);
    std::optional<std::string> delivered;
    client.getBundleIdWithStoreIdentifier("284882215", [&](std::string bundleId) { delivered = std::move(bundleId); });
    queues.globalQueue().drain();
    EXPECT_FALSE(delivered) << "the completion belongs on the main queue";
    queues.mainQueue().drain();
    EXPECT_EQ(delivered, GetParam().bundleId);
}
INSTANTIATE_TEST_SUITE_P(
    Replies, Lookup,
    ::testing::Values(LookupCase{{200, R"({"resultCount":1,"results":[{"bundleId":"com.example.app"}]})", {}},
                                 "com.example.app"},
                      LookupCase{{200, R"({"resultCount":0,"results":[]})", {}}, ""},
                      LookupCase{{200, R"({"results":[{"trackId":1}]})", {}}, ""},
                      LookupCase{{200, R"({"results":[{"bundleId":7}]})", {}}, ""},
                      LookupCase{{200, R"({"results":{"bundleId":"x"}})", {}}, ""}, LookupCase{{200, "<html>", {}}, ""},
                      LookupCase{{404, R"({"results":[{"bundleId":"x"}]})", {}}, "x"},
                      LookupCase{{404, R"({"errorMessage":"Invalid value(s) for key(s): [id]"})", {}}, ""},
                      LookupCase{{0, {}, std::string("connection refused")}, ""}));

class ReverseLookup : public ServiceClientTest, public ::testing::WithParamInterface<LookupCase> {};
TEST_P(ReverseLookup, DeliversTheStoreIdentifierOrEmptyOnTheMainQueue) {
    http.reply("https://lookup.example/lookup?bundleId=com.example.app", GetParam().reply);
    std::optional<std::string> delivered;
    client.getStoreIdentifierWithBundleId("com.example.app", [&](std::string id) { delivered = std::move(id); });
    queues.globalQueue().drain();
    EXPECT_FALSE(delivered) << "the completion belongs on the main queue";
    queues.mainQueue().drain();
    EXPECT_EQ(delivered, GetParam().bundleId);
}
INSTANTIATE_TEST_SUITE_P(
    Replies, ReverseLookup,
    ::testing::Values(LookupCase{{200, R"({"resultCount":1,"results":[{"trackId":284882215}]})", {}}, "284882215"},
                      LookupCase{{404, R"({"results":[{"trackId":7}]})", {}}, "7"},
                      LookupCase{{200, R"({"results":[{"trackId":"7"}]})", {}}, ""},
                      LookupCase{{200, R"({"results":[{"trackId":true}]})", {}}, ""},
                      LookupCase{{200, R"({"resultCount":0,"results":[]})", {}}, ""},
                      LookupCase{{500, "<html>", {}}, ""}, LookupCase{{0, {}, std::string("timed out")}, ""}));

// Why a lookup has no answer, told apart for a person at a terminal.
struct LookupFailureCase {
    HttpResult reply;
    ErrorCode code;
    std::string detailStart;
};
class LookupFailure : public ServiceClientTest, public ::testing::WithParamInterface<LookupFailureCase> {};
TEST_P(LookupFailure, SaysWhyThereIsNoAnswer) {
    http.reply("https://lookup.example/lookup?id=284882215", GetParam().reply);
    std::optional<ServiceClient::LookupReply> delivered;
    client.lookUpBundleId("284882215", [&](ServiceClient::LookupReply reply) { delivered.emplace(std::move(reply)); });
    queues.drainAll();
    ASSERT_TRUE(delivered.has_value());
    ASSERT_FALSE(delivered->ok());
    EXPECT_EQ(delivered->error().code, GetParam().code);
    EXPECT_EQ(delivered->error().detail.substr(0, GetParam().detailStart.size()), GetParam().detailStart);
}
INSTANTIATE_TEST_SUITE_P(
    Replies, LookupFailure,
    ::testing::Values(
        LookupFailureCase{{200, R"({"resultCount":0,"results":[]})", {}}, ErrorCode::NotFound, "no such app"},
        LookupFailureCase{{404, R"({"resultCount":0,"results":[]})", {}}, ErrorCode::NotFound, "no such app"},
        LookupFailureCase{{404, R"({"errorMessage":"Invalid value(s) for key(s): [id]"})", {}},
                          ErrorCode::ServiceRefused,
                          "the service answered with HTTP status 404"},
        LookupFailureCase{{503, "<html>", {}}, ErrorCode::ServiceRefused, "the service answered with HTTP status 503"},
        LookupFailureCase{{200, "<html>", {}}, ErrorCode::MalformedReply, "the reply is not JSON"},
        LookupFailureCase{{200, R"({"results":[{"trackId":1}]})", {}},
                          ErrorCode::MalformedReply,
                          "the reply holds no usable first result"},
        LookupFailureCase{{200, R"({"results":{"bundleId":"x"}})", {}},
                          ErrorCode::MalformedReply,
                          "the reply holds no usable first result"},
        LookupFailureCase{{0, {}, std::string("timed out after 15 s (url)")},
                          ErrorCode::ServiceUnreachable,
                          "timed out after 15 s (url)"}));

TEST_F(ServiceClientTest, ReverseLookupEncodesTheBundleIdAsAQueryValue) {
    client.getStoreIdentifierWithBundleId("a b&c=d", [](const std::string &) {});
    queues.drainAll();
    EXPECT_EQ(http.fetched().at(0).url, "https://lookup.example/lookup?bundleId=a%20b%26c%3Dd");
}

} // namespace
} // namespace qv
