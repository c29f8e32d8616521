// Version service request handling over a real SQLite file: routes, validation, idempotent recording, caps.
#include "server/version_service.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "base/json.h"
#include "base/text.h"
#include "fakes/broken_storage.h"
#include "server/sqlite_storage.h"
#include "support/temp_dir.h"

namespace qv::server {
namespace {

class ServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        SqliteOptions options;
        options.path = directory_.file("versions.sqlite");
        options.readers = 2;
        options.maxSearchEvents = 3;
        auto opened = SqliteStorage::open(options);
        ASSERT_TRUE(opened) << opened.error().describe();
        storage_ = std::move(opened).value();
        service_ = std::make_unique<VersionService>(*storage_);
    }
    void TearDown() override {
        service_.reset();
        storage_.reset();
    }

    ServiceResponse call(const std::string &method, const std::string &path, const std::string &body = {},
                         std::multimap<std::string, std::string> query = {},
                         std::multimap<std::string, std::string> headers = {}) {
        return service_->handle(ServiceRequest{method, path, std::move(query), body, std::move(headers), "192.0.2.1"});
    }
    std::string versionsOf(const std::string &id) { return call("GET", "/v1/apple_apps/" + id + "/versions").body; }

    test::TemporaryDirectory directory_{"qv-service"};
    std::unique_ptr<SqliteStorage> storage_;
    std::unique_ptr<VersionService> service_;
};

const char *const kMetadataReport =
    R"({"bundle_id":"com.example.app","identifier":"42","title":"Example","versions":[{"display":"1.2.0","externalId":900}]})";
const char *const kItemReport = R"({"bundle_id":"com.example.app","identifier":42,"title":"Example 2","versions":[
    {"display":"2.0","externalId":"1000","releaseDate":"2020"},{"display":"1.9","externalId":100}]})";

TEST_F(ServiceTest, BothReportShapesMergeIntoOneNewestFirstList) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"2.0","external_identifier":"1000"},)"
                                R"({"bundle_version":"1.2.0","external_identifier":"900"},)"
                                R"({"bundle_version":"1.9","external_identifier":"100"}])");
    EXPECT_EQ(versionsOf("43"), "[]");
}

TEST_F(ServiceTest, RepeatedReportsAreIdempotentAndTheFirstNamesStay) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    }
    ASSERT_EQ(
        call(
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"com.example.app","identifier":42,"title":"Final","versions":[{"display":"2.0.1","externalId":1000}]})")
            .status,
        200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"2.0","external_identifier":"1000"},)"
                                R"({"bundle_version":"1.9","external_identifier":"100"}])");
    EXPECT_EQ(
        call("GET", "/lookup", {}, {{"bundleId", "com.example.app"}}).body,
        R"({"resultCount":1,"results":[{"trackId":42,"bundleId":"com.example.app","trackName":"Example 2","version":"2.0"}]})");
    const auto moved = call(
        "POST", "/v1/apple_apps/42/versions",
        R"({"bundle_id":"com.example.renamed","identifier":42,"title":"T","versions":[{"display":"3","externalId":3}]})");
    EXPECT_EQ(moved.status, 409);
    EXPECT_EQ(moved.body, R"({"error":"app 42 is com.example.app, not com.example.renamed"})");
    EXPECT_EQ(call("GET", "/lookup", {}, {{"bundleId", "com.example.renamed"}}).body,
              R"({"resultCount":0,"results":[]})");
}

// Each client has its own allowance of writes; reads are never counted, and one client's refusals cost no other.
TEST_F(ServiceTest, AClientPastItsWriteRateIsToldWhenToComeBack) {
    ServiceLimits limits;
    limits.writesPerMinute = 2;
    limits.clientAddressHeader = "x-real-ip";
    const VersionService limited(*storage_, limits);
    const auto post = [&](const std::string &peer, const std::string &forwarded) {
        std::multimap<std::string, std::string> headers;
        if (!forwarded.empty()) {
            headers.emplace("x-real-ip", forwarded);
        }
        return limited.handle(
            ServiceRequest{"POST", "/v1/apple_apps/42/versions", {}, kMetadataReport, std::move(headers), peer});
    };
    EXPECT_EQ(post("192.0.2.1", "").status, 200);
    EXPECT_EQ(post("192.0.2.1", "").status, 200);
    EXPECT_EQ(limited.handle(ServiceRequest{"GET", "/v1/apple_apps/42/versions", {}, {}, {}, "192.0.2.1"}).status, 200);
    const auto refused = post("192.0.2.1", "");
    EXPECT_EQ(refused.status, 429);
    EXPECT_EQ(refused.headers, (std::vector<std::pair<std::string, std::string>>{{"Retry-After", "30"}}));
    // Behind the proxy every client shares its address; the header it sets tells them apart.
    EXPECT_EQ(post("192.0.2.1", "198.51.100.7").status, 200);
    EXPECT_EQ(post("192.0.2.9", "").status, 200);
}

TEST_F(ServiceTest, AReportReplacesAnAlreadyAnsweredList) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"1.2.0","external_identifier":"900"}])");
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    EXPECT_EQ(versionsOf("42").find(R"({"bundle_version":"2.0","external_identifier":"1000"})"), 1U);
}

TEST_F(ServiceTest, VersionsWithoutADisplayAreListedInOrderAndFilledInLater) {
    ASSERT_EQ(
        call(
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"com.example.app","identifier":42,"title":"E","versions":[{"display":"","externalId":9},{"display":"","externalId":1000}]})")
            .status,
        200);
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"","external_identifier":"1000"},)"
                                R"({"bundle_version":"1.2.0","external_identifier":"900"},)"
                                R"({"bundle_version":"","external_identifier":"9"}])");
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    EXPECT_EQ(versionsOf("42").find(R"([{"bundle_version":"2.0","external_identifier":"1000"})"), 0U);
}

TEST(VersionsReplyCache, AReplyReadBeforeAReportIsNotKept) {
    VersionsReplyCache cache;
    const auto staleTicket = cache.ticket();
    cache.invalidate(7);
    cache.store(7, staleTicket, {"[old]", "\"o\""});
    EXPECT_FALSE(cache.find(7));
    cache.store(7, cache.ticket(), {"[new]", "\"n\""});
    EXPECT_EQ(cache.find(7)->body, "[new]");
    cache.invalidate(7);
    EXPECT_FALSE(cache.find(7));
}

TEST(VersionsReplyCache, StaysWithinItsBytesDroppingTheLeastRecentlyRead) {
    const TaggedReply reply{std::string(1000, 'x'), "\"t\""};
    constexpr std::size_t kTwoReplies = std::size_t{2} * 1200;
    VersionsReplyCache cache(kTwoReplies);
    cache.store(1, cache.ticket(), reply);
    cache.store(2, cache.ticket(), reply);
    ASSERT_TRUE(cache.find(1)); // 2 is now the least recently read
    cache.store(3, cache.ticket(), reply);
    EXPECT_TRUE(cache.find(1));
    EXPECT_FALSE(cache.find(2));
    EXPECT_TRUE(cache.find(3));
    EXPECT_LE(cache.bytes(), kTwoReplies);
    cache.store(4, cache.ticket(), {std::string(5000, 'x'), "\"big\""});
    EXPECT_FALSE(cache.find(4));
    EXPECT_TRUE(cache.find(3));
    cache.invalidate(1);
    cache.invalidate(3);
    EXPECT_EQ(cache.bytes(), 0U);
}

TEST_F(ServiceTest, SearchEventsAreCappedDroppingTheOldest) {
    for (int i = 0; i < 5; ++i) {
        const std::string event = R"({"name":"search","attributes":{"query":"q)" + std::to_string(i) +
                                  R"(","results":[{"appId":"1","rank":1}],"country":"fr"}})";
        ASSERT_EQ(call("POST", "/v1/events", event).status, 200);
    }
    EXPECT_EQ(storage_->searchEventCount().valueOr(-1), 3);
}

struct BadRequest {
    const char *method;
    std::string path;
    std::string body;
    int status;
    const char *error = nullptr; // the exact message, where clients depend on it
    std::multimap<std::string, std::string> query = {};
};
class RefusedRequest : public ServiceTest, public ::testing::WithParamInterface<BadRequest> {};
TEST_P(RefusedRequest, AnswersWithAJsonErrorAndKeepsStoredData) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    const std::string before = versionsOf("42");
    const auto eventsBefore = storage_->searchEventCount().valueOr(-1);
    const auto response = call(GetParam().method, GetParam().path, GetParam().body, GetParam().query);
    EXPECT_EQ(response.status, GetParam().status);
    EXPECT_TRUE(isValidUtf8(response.body)) << response.body;
    const auto error = parseJson(response.body);
    ASSERT_TRUE(error && error->asDictionary()) << response.body;
    const Value *message = error->asDictionary()->find(Value("error"));
    ASSERT_TRUE(message && message->asString() && !message->asString()->empty()) << response.body;
    if (GetParam().error != nullptr) {
        EXPECT_EQ(*message->asString(), GetParam().error);
    }
    EXPECT_EQ(versionsOf("42"), before);
    EXPECT_EQ(storage_->searchEventCount().valueOr(-1), eventsBefore);
    EXPECT_EQ(storage_->versionsOf(42)->size(), 2U);
    EXPECT_EQ(storage_->appsWithId(42)->at(0).title, "Example 2");
}
const std::string kOversized(kMaxBodyBytes + 1, ' ');
std::string reportWith(std::size_t versions) {
    std::string body = R"({"bundle_id":"b","identifier":42,"title":"t","versions":[)";
    for (std::size_t i = 0; i < versions; ++i) {
        body += (i == 0 ? "" : ",") + std::string(R"({"display":"1","externalId":)") + std::to_string(i + 1) + "}";
    }
    return body + "]}";
}
std::string eventWithQuery(const std::string &query) {
    return R"({"name":"search","attributes":{"query":")" + query + R"(","results":[{"appId":"1","rank":1}]}})";
}
INSTANTIATE_TEST_SUITE_P(
    Requests, RefusedRequest,
    ::testing::Values(
        BadRequest{"POST", "/v1/apple_apps/42/versions", "{\"identifier\":", 400},
        BadRequest{"POST", "/v1/apple_apps/42/versions", "[]", 400, "the body must be a JSON object"},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   R"({"bundle_id":"b","identifier":43,"title":"t","versions":[{"display":"1","externalId":1}]})", 400},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   R"({"bundle_id":"b","title":"t","versions":[{"display":"1","externalId":1}]})", 400},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   R"({"bundle_id":7,"identifier":42,"title":"t","versions":[{"display":"1","externalId":1}]})", 400},
        BadRequest{
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"b","identifier":42,"title":"t","versions":[{"display":"9","externalId":1},{"display":"1","externalId":"x1"}]})",
            400},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   R"({"bundle_id":"b","identifier":42,"title":"t","versions":[{"display":1,"externalId":1}]})", 400},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   R"({"bundle_id":"b","identifier":42,"title":"t","versions":[{"display":"1","externalId":-1}]})",
                   400},
        BadRequest{
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"b","identifier":42,"title":"t","versions":[{"display":"1","externalId":"99999999999999999999"}]})",
            400},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   R"({"bundle_id":"b","identifier":42,"title":"t","versions":[]})", 400},
        BadRequest{"GET", "/v1/apple_apps/4x2/versions", "", 400},
        BadRequest{"POST", "/v1/apple_apps/-42/versions", kItemReport, 400},
        BadRequest{"POST", "/v1/events", R"({"name":"open","attributes":{}})", 400},
        BadRequest{"POST", "/v1/events",
                   R"({"name":"search","attributes":{"query":"q","results":[{"appId":1,"rank":1}]}})", 400},
        BadRequest{"POST", "/v1/events",
                   R"({"name":"search","attributes":{"query":"q","results":[{"appId":"1","rank":0}]}})", 400},
        BadRequest{"POST", "/v1/apple_apps/42/versions", kOversized, 413, "the body is larger than 1 MiB"},
        BadRequest{"GET", "/v1/apple_apps/42", "", 404}, BadRequest{"GET", "/v1/apple_apps/4/2/versions", "", 404},
        BadRequest{"GET", "/nowhere", "", 404, "no such resource: /nowhere"},
        BadRequest{"POST", "/", "", 405, "method not allowed; use GET"},
        BadRequest{"GET", "/v1/apple_apps", "", 400,
                   "give the query parameter query: an app name, bundle identifier or store identifier"},
        BadRequest{"GET", "/v1/apple_apps", "", 400, nullptr, {{"query", ""}}},
        BadRequest{"GET", "/v1/apple_apps", "", 400, "the query has no letter or digit", {{"query", "!?"}}},
        BadRequest{
            "GET", "/v1/apple_apps", "", 400, "the query is longer than 200 bytes", {{"query", std::string(201, 'a')}}},
        BadRequest{"POST", "/v1/apple_apps", "", 405},
        BadRequest{"DELETE", "/v1/apple_apps/42/versions", "", 405, "method not allowed; use GET, POST"},
        BadRequest{"GET", "/v1/events", "", 405}, BadRequest{"POST", "/lookup", "", 405},
        BadRequest{"GET", "/lookup", "", 400},
        // Text that is not UTF-8, or that holds a NUL, is refused wherever it appears.
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   "{\"bundle_id\":\"b\xff\",\"identifier\":42,\"title\":\"t\",\"versions\":[{\"display\":\"1\","
                   "\"externalId\":1}]}",
                   400, "the body is not valid UTF-8"},
        BadRequest{"POST", "/v1/apple_apps/42/versions",
                   "{\"bundle_id\":\"b\",\"identifier\":42,\"title\":\"\xc0\xaf\",\"versions\":[{\"display\":\"1\","
                   "\"externalId\":1}]}",
                   400, "the body is not valid UTF-8"},
        BadRequest{
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"b","identifier":42,"title":"a\u0000b","versions":[{"display":"1","externalId":1}]})", 400,
            "a text of the body holds a NUL character"},
        BadRequest{
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"b","identifier":42,"title":"t","versions":[{"display":"1","externalId":1,"note\u0000":0}]})",
            400},
        BadRequest{"POST", "/v1/events", eventWithQuery("caf\xe9"), 400},
        BadRequest{"POST", "/v1/events", eventWithQuery("\xed\xa0\x80"), 400},
        BadRequest{"POST", "/v1/events", eventWithQuery("q\\u0000"), 400},
        BadRequest{"GET", "/lookup", "", 400, nullptr, {{"bundleId", "com.\xff"}}},
        BadRequest{"GET", "/lookup", "", 400, nullptr, {{"bundleId", std::string("a\0b", 3)}}},
        BadRequest{"GET", "/v1/apple_apps/\xff/versions", "", 400}, BadRequest{"GET", "/\xfe", "", 400},
        // Size limits: a report's versions, one event's bytes.
        BadRequest{"POST", "/v1/apple_apps/42/versions", reportWith(kDefaultMaxVersionsPerReport + 1), 413,
                   "a report carries at most 2000 versions; this one has 2001"},
        BadRequest{"POST", "/v1/events", eventWithQuery(std::string(kMaxEventBytes, 'q')), 413}));

class LookupQuery : public ServiceTest,
                    public ::testing::WithParamInterface<std::pair<std::multimap<std::string, std::string>, int>> {};
TEST_P(LookupQuery, NeedsExactlyOneWellFormedKey) {
    EXPECT_EQ(call("GET", "/lookup", {}, GetParam().first).status, GetParam().second);
}
INSTANTIATE_TEST_SUITE_P(
    Queries, LookupQuery,
    ::testing::Values(std::make_pair(std::multimap<std::string, std::string>{{"id", "42"}}, 200),
                      std::make_pair(std::multimap<std::string, std::string>{{"id", "x"}}, 400),
                      std::make_pair(std::multimap<std::string, std::string>{{"id", "1"}, {"bundleId", "b"}}, 400)));

TEST_F(ServiceTest, AcceptsAReportOfExactlyTheVersionLimit) {
    EXPECT_EQ(call("POST", "/v1/apple_apps/42/versions", reportWith(kDefaultMaxVersionsPerReport)).status, 200);
}

struct OutageCase {
    const char *method;
    const char *path;
    std::string body;
    int statusWhileBroken;
    const char *errorStart;
};
class StorageOutage : public ServiceTest, public ::testing::WithParamInterface<OutageCase> {};
TEST_P(StorageOutage, WritesAskForARetryAndEverythingWorksOnceTheStorageIsBack) {
    BrokenStorage broken(*storage_);
    const VersionService service(broken);
    const ServiceRequest request{GetParam().method, GetParam().path, {{"id", "42"}}, GetParam().body, {}, {}};
    const auto failed = service.handle(request);
    EXPECT_EQ(failed.status, GetParam().statusWhileBroken);
    EXPECT_EQ(failed.body.rfind(GetParam().errorStart, 0), 0U) << failed.body;
    const bool retryAfter = failed.headers == std::vector<std::pair<std::string, std::string>>{{"Retry-After", "5"}};
    EXPECT_EQ(retryAfter, failed.status == 503);
    broken.mend();
    EXPECT_EQ(service.handle(request).status, 200);
}
INSTANTIATE_TEST_SUITE_P(
    Requests, StorageOutage,
    ::testing::Values(
        OutageCase{"POST", "/v1/apple_apps/42/versions", kItemReport, 503,
                   R"x({"error":"the database cannot be written at the moment; try again shortly (disk full)"})x"},
        OutageCase{"POST", "/v1/events", eventWithQuery("q"), 503, R"({"error":"the database cannot be written)"},
        OutageCase{"GET", "/v1/apple_apps/42/versions", "", 500, R"({"error":"storage failure: disk I/O error"})"},
        OutageCase{"GET", "/lookup", "", 500, R"({"error":"storage failure: disk I/O error"})"},
        OutageCase{"GET", "/", "", 500, R"({"error":"storage failure: disk I/O error"})"}));

struct ConditionalCase {
    const char *name;
    const char *path;
    std::multimap<std::string, std::string> query;
    std::vector<std::string> ifNoneMatch; // "{tag}" stands for the reply's own tag
    int status;
};
class ConditionalRead : public ServiceTest, public ::testing::WithParamInterface<ConditionalCase> {};
TEST_P(ConditionalRead, CarriesAStrongTagAndAnswersAMatchWithoutABody) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    const auto plain = call("GET", GetParam().path, {}, GetParam().query);
    std::multimap<std::string, std::string> headers;
    for (std::string value : GetParam().ifNoneMatch) {
        if (const auto at = value.find("{tag}"); at != std::string::npos) {
            value.replace(at, 5, entityTagOf(plain.body));
        }
        headers.emplace("if-none-match", value);
    }
    const auto response = call("GET", GetParam().path, {}, GetParam().query, headers);
    EXPECT_EQ(response.status, GetParam().status);
    std::vector<std::pair<std::string, std::string>> cacheHeaders{{"ETag", entityTagOf(plain.body)},
                                                                  {"Cache-Control", "public, max-age=60"}};
    if (response.status == 304) {
        cacheHeaders.emplace_back("Content-Length", std::to_string(plain.body.size()));
    }
    if (response.status == 200 || response.status == 304) {
        // Pages add their own headers after these.
        ASSERT_GE(response.headers.size(), cacheHeaders.size());
        EXPECT_EQ(decltype(cacheHeaders)(response.headers.begin(), response.headers.begin() + cacheHeaders.size()),
                  cacheHeaders);
        EXPECT_EQ(response.body, response.status == 200 ? plain.body : "");
    } else {
        EXPECT_TRUE(response.headers.empty());
    }
}
INSTANTIATE_TEST_SUITE_P(
    Headers, ConditionalRead,
    ::testing::Values(
        ConditionalCase{"VersionsWithoutCondition", "/v1/apple_apps/42/versions", {}, {}, 200},
        ConditionalCase{"VersionsSameTag", "/v1/apple_apps/42/versions", {}, {"{tag}"}, 304},
        ConditionalCase{"VersionsTagInAList", "/v1/apple_apps/42/versions", {}, {R"("a,b", W/"c" ,{tag})"}, 304},
        ConditionalCase{"VersionsTagInASecondHeader", "/v1/apple_apps/42/versions", {}, {R"("other")", "{tag}"}, 304},
        ConditionalCase{"VersionsWeakForm", "/v1/apple_apps/42/versions", {}, {"W/{tag}"}, 304},
        ConditionalCase{"VersionsAnyTag", "/v1/apple_apps/42/versions", {}, {"*"}, 304},
        ConditionalCase{"VersionsOtherTag", "/v1/apple_apps/42/versions", {}, {R"("0000000000000000-2")"}, 200},
        ConditionalCase{"VersionsUnquoted", "/v1/apple_apps/42/versions", {}, {"unquoted, {tag}"}, 200},
        ConditionalCase{"VersionsUnterminated", "/v1/apple_apps/42/versions", {}, {"\"abc"}, 200},
        ConditionalCase{"UnknownAppSameTag", "/v1/apple_apps/43/versions", {}, {"{tag}"}, 304},
        ConditionalCase{"LookupSameTag", "/lookup", {{"id", "42"}}, {"{tag}"}, 304},
        ConditionalCase{"LookupOtherTag", "/lookup", {{"bundleId", "com.example.renamed"}}, {R"("x")"}, 200},
        ConditionalCase{"ErrorsCarryNoTag", "/lookup", {{"id", "x"}}, {"*"}, 400},
        ConditionalCase{"SearchSameTag", "/v1/apple_apps", {{"query", "example"}}, {"{tag}"}, 304},
        ConditionalCase{"HomePageSameTag", "/", {}, {"{tag}"}, 304},
        ConditionalCase{"AppPageSameTag", "/apps/42", {}, {"{tag}"}, 304},
        ConditionalCase{"AppPageOtherTag", "/apps/42", {}, {R"("x")"}, 200},
        ConditionalCase{"StylesheetSameTag", "/style.css", {}, {"{tag}"}, 304}),
    [](const auto &info) { return std::string(info.param.name); });

const char *const kHostileReport =
    R"({"bundle_id":"com.example.notes","identifier":42,"title":"Notes <script>alert(1)</script> & \"Co\"",)"
    R"("versions":[{"display":"<b>1.2</b>","externalId":900},{"display":"","externalId":901}]})";

struct PageCase {
    const char *name;
    const char *path;
    std::multimap<std::string, std::string> query;
    int status;
    std::vector<std::string> shows; // each must be in the page
};
class Page : public ServiceTest, public ::testing::WithParamInterface<PageCase> {};
TEST_P(Page, ShowsItsValuesEscapedUnderAStrictPolicy) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kHostileReport).status, 200);
    const auto page = call("GET", GetParam().path, {}, GetParam().query, {{"host", "versions.test:8080"}});
    EXPECT_EQ(page.status, GetParam().status);
    for (const auto &text : GetParam().shows) {
        EXPECT_NE(page.body.find(text), std::string::npos) << text << "\n" << page.body;
    }
    EXPECT_EQ(page.body.find("<script"), std::string::npos) << page.body;
    EXPECT_EQ(page.body.find("<b>"), std::string::npos) << page.body;
    const auto header = [&](const std::string &name) {
        for (const auto &[key, value] : page.headers) {
            if (key == name) {
                return value;
            }
        }
        return std::string();
    };
    EXPECT_EQ(header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(header("Content-Security-Policy").rfind("default-src 'none'; style-src 'self';", 0), 0U);
}
INSTANTIATE_TEST_SUITE_P(
    Paths, Page,
    ::testing::Values(
        PageCase{"HomeCountsAndListsTheRecentApp",
                 "/",
                 {},
                 200,
                 {R"(<strong id="app-count">1</strong>)", R"(<strong id="version-count">2</strong> versions)",
                  R"(<a href="/apps/42">Notes &lt;script&gt;alert(1)&lt;/script&gt; &amp; &quot;Co&quot;</a>)",
                  "&lt;b&gt;1.2&lt;/b&gt;"}},
        PageCase{"SearchFindsAWordOfTheTitle", "/search", {{"q", "SCRIPT"}}, 200, {"1 app matches", "/apps/42"}},
        PageCase{"SearchFindsTheStoreIdentifier", "/search", {{"q", "42"}}, 200, {"/apps/42"}},
        PageCase{"SearchShowsTheQueryAsText",
                 "/search",
                 {{"q", "<script>zebra"}},
                 200,
                 {"No app matches “&lt;script&gt;zebra”", R"(value="&lt;script&gt;zebra")"}},
        PageCase{"SearchExplainsARefusal", "/search", {{"q", "<>"}}, 400, {"the query has no letter or digit"}},
        PageCase{"SearchExplainsAnEmptyQuery", "/search", {}, 400, {"the query is empty"}},
        PageCase{"AppListsVersionsWithTheirCommands",
                 "/apps/42",
                 {},
                 200,
                 {"<h3>&lt;b&gt;1.2&lt;/b&gt;</h3>", "<h3>Unknown version</h3>", "qvdovrin downgrade 42 --version 900",
                  "qvdovrin downgrade 42 --version 901", R"(<dd id="bundle-id">com.example.notes</dd>)"}},
        PageCase{"UnknownAppIsNotFound", "/apps/43", {}, 404, {"No app with store identifier 43"}},
        PageCase{"AppNeedsDigits", "/apps/4%32", {}, 400, {"A store identifier is decimal digits"}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ServiceTest, AnEmptyServiceSaysHowToFeedIt) {
    const auto page = call("GET", "/", {}, {}, {{"host", "versions.test:8080"}});
    EXPECT_EQ(page.status, 200);
    EXPECT_NE(page.body.find(R"(<strong id="app-count">0</strong>)"), std::string::npos);
    EXPECT_NE(page.body.find("qvdovrin import ~/Downloads/SomeApp.ipa --server http://versions.test:8080/"),
              std::string::npos)
        << page.body;
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    EXPECT_EQ(call("GET", "/").body.find("qvdovrin import"), std::string::npos);
}

TEST_F(ServiceTest, SearchAnswersJsonWithTheAppsFound) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kHostileReport).status, 200);
    ASSERT_EQ(
        call("POST", "/v1/apple_apps/7/versions",
             R"({"bundle_id":"org.maps","identifier":7,"title":"Maps","versions":[{"display":"3","externalId":1}]})")
            .status,
        200);
    const auto found = parseJson(call("GET", "/v1/apple_apps", {}, {{"query", "com.example"}}).body);
    ASSERT_TRUE(found && found->asArray());
    ASSERT_EQ(found->asArray()->size(), 1U);
    const auto *app = (*found->asArray())[0].asDictionary();
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(*app->find(Value("identifier")), Value("42"));
    EXPECT_EQ(*app->find(Value("title")), Value("Notes <script>alert(1)</script> & \"Co\""));
    EXPECT_EQ(*app->find(Value("newest_version")), Value("<b>1.2</b>"));
    EXPECT_EQ(call("GET", "/v1/apple_apps", {}, {{"query", "zebra"}}).body, "[]");
}

TEST_F(ServiceTest, AReportGivesTheListANewTag) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    const std::string oldTag = entityTagOf(versionsOf("42"));
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    const auto response = call("GET", "/v1/apple_apps/42/versions", {}, {}, {{"if-none-match", oldTag}});
    EXPECT_EQ(response.status, 200);
    EXPECT_NE(response.headers.at(0).second, oldTag);
}

} // namespace
} // namespace qv::server
