// Version service request handling over a real SQLite file: routes, validation, idempotent recording, caps.
#include "server/version_service.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "base/json.h"
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
                         std::multimap<std::string, std::string> query = {}) {
        return service_->handle(ServiceRequest{method, path, std::move(query), body});
    }
    std::string versionsOf(const std::string &id) { return call("GET", "/v1/apple_apps/" + id + "/versions").body; }

    test::TemporaryDirectory directory_{"qv-service"};
    std::unique_ptr<SqliteStorage> storage_;
    std::unique_ptr<VersionService> service_;
};

const char *const kMetadataReport =
    R"({"bundle_id":"com.example.app","identifier":"42","title":"Example","versions":[{"display":"1.2.0","externalId":900}]})";
const char *const kItemReport = R"({"bundle_id":"com.example.renamed","identifier":42,"title":"Example 2","versions":[
    {"display":"2.0","externalId":"1000","releaseDate":"2020"},{"display":"1.9","externalId":100}]})";

TEST_F(ServiceTest, BothReportShapesMergeIntoOneNewestFirstList) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"2.0","external_identifier":"1000"},)"
                                R"({"bundle_version":"1.2.0","external_identifier":"900"},)"
                                R"({"bundle_version":"1.9","external_identifier":"100"}])");
    EXPECT_EQ(versionsOf("43"), "[]");
}

TEST_F(ServiceTest, RepeatedReportsAreIdempotentAndTheLatestNamesWin) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    }
    ASSERT_EQ(
        call(
            "POST", "/v1/apple_apps/42/versions",
            R"({"bundle_id":"com.example.app","identifier":42,"title":"Final","versions":[{"display":"2.0.1","externalId":1000}]})")
            .status,
        200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"2.0.1","external_identifier":"1000"},)"
                                R"({"bundle_version":"1.9","external_identifier":"100"}])");
    EXPECT_EQ(
        call("GET", "/lookup", {}, {{"bundleId", "com.example.app"}}).body,
        R"({"resultCount":1,"results":[{"trackId":42,"bundleId":"com.example.app","trackName":"Final","version":"2.0.1"}]})");
    EXPECT_EQ(call("GET", "/lookup", {}, {{"bundleId", "com.example.renamed"}}).body,
              R"({"resultCount":0,"results":[]})");
}

TEST_F(ServiceTest, AReportReplacesAnAlreadyAnsweredList) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kMetadataReport).status, 200);
    EXPECT_EQ(versionsOf("42"), R"([{"bundle_version":"1.2.0","external_identifier":"900"}])");
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    EXPECT_EQ(versionsOf("42").find(R"({"bundle_version":"2.0","external_identifier":"1000"})"), 1U);
}

TEST(VersionsReplyCache, AReplyReadBeforeAReportIsNotKept) {
    VersionsReplyCache cache;
    const auto staleTicket = cache.ticket();
    cache.invalidate(7);
    cache.store(7, staleTicket, "[old]");
    EXPECT_FALSE(cache.find(7));
    cache.store(7, cache.ticket(), "[new]");
    EXPECT_EQ(cache.find(7), "[new]");
    cache.invalidate(7);
    EXPECT_FALSE(cache.find(7));
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
    const char *path;
    const char *body;
    int status;
    const char *error = nullptr; // the exact message, where clients depend on it
};
class RefusedRequest : public ServiceTest, public ::testing::WithParamInterface<BadRequest> {};
TEST_P(RefusedRequest, AnswersWithAJsonErrorAndKeepsStoredData) {
    ASSERT_EQ(call("POST", "/v1/apple_apps/42/versions", kItemReport).status, 200);
    const std::string before = versionsOf("42");
    const auto response = call(GetParam().method, GetParam().path, GetParam().body);
    EXPECT_EQ(response.status, GetParam().status);
    const auto error = parseJson(response.body);
    ASSERT_TRUE(error && error->asDictionary()) << response.body;
    const Value *message = error->asDictionary()->find(Value("error"));
    ASSERT_TRUE(message && message->asString() && !message->asString()->empty()) << response.body;
    if (GetParam().error != nullptr) {
        EXPECT_EQ(*message->asString(), GetParam().error);
    }
    EXPECT_EQ(versionsOf("42"), before);
    EXPECT_EQ(storage_->versionsOf(42)->size(), 2U);
    EXPECT_EQ(storage_->appsWithId(42)->at(0).title, "Example 2");
}
const std::string kOversized(kMaxBodyBytes + 1, ' ');
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
        BadRequest{"POST", "/v1/apple_apps/42/versions", kOversized.c_str(), 413, "the body is larger than 1 MiB"},
        BadRequest{"GET", "/v1/apple_apps/42", "", 404}, BadRequest{"GET", "/v1/apple_apps/4/2/versions", "", 404},
        BadRequest{"GET", "/", "", 404, "no such resource: /"},
        BadRequest{"DELETE", "/v1/apple_apps/42/versions", "", 405, "method not allowed; use GET, POST"},
        BadRequest{"GET", "/v1/events", "", 405}, BadRequest{"POST", "/lookup", "", 405},
        BadRequest{"GET", "/lookup", "", 400}));

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

TEST(BrokenStorageService, AnswersEveryValidRequestWith500) {
    BrokenStorage storage;
    const VersionService service(storage);
    const std::vector<ServiceRequest> requests{
        {"POST", "/v1/apple_apps/42/versions", {}, kItemReport},
        {"GET", "/v1/apple_apps/42/versions", {}, {}},
        {"GET", "/lookup", {{"id", "42"}}, {}},
        {"POST", "/v1/events", {}, R"({"name":"search","attributes":{"query":"q","results":[]}})"}};
    for (const auto &request : requests) {
        const auto response = service.handle(request);
        EXPECT_EQ(response.status, 500) << request.path;
        EXPECT_EQ(response.body.rfind(R"({"error":"storage failure: disk )", 0), 0U) << response.body;
    }
}

} // namespace
} // namespace qv::server
