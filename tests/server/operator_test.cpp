// What the operator relies on: route labels, access-log lines, the health check, the metrics, the package source's
// path handling, and a front that drains instead of dropping requests under way.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "fakes/broken_storage.h"
#include "server/access_log.h"
#include "server/metrics.h"
#include "server/operator_routes.h"
#include "server/package_source.h"
#include "server/sqlite_storage.h"
#include "support/raw_http.h"
#include "support/temp_dir.h"

namespace qv::server {
namespace {

struct RouteCase {
    const char *name;
    const char *path;
    const char *route;
};

class RouteLabels : public ::testing::TestWithParam<RouteCase> {};

TEST_P(RouteLabels, NameABoundedSetOfRoutes) {
    EXPECT_EQ(routeName(routeOf(GetParam().path)), GetParam().route);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, RouteLabels,
    ::testing::Values(RouteCase{"Versions", "/v1/apple_apps/42/versions", "versions"},
                      RouteCase{"Search", "/v1/apple_apps", "search"}, RouteCase{"Lookup", "/lookup", "lookup"},
                      RouteCase{"Events", "/v1/events", "events"}, RouteCase{"Home", "/", "pages"},
                      RouteCase{"AppPage", "/apps/42", "pages"}, RouteCase{"PackageIndex", "/repo/./Packages", "repo"},
                      RouteCase{"Stylesheet", "/style.css", "pages"},
                      RouteCase{"RepoLookalike", "/repository", "other"},
                      RouteCase{"VersionsLookalike", "/v1/apple_apps/42/versions/x", "other"},
                      RouteCase{"Health", "/healthz", "healthz"}, RouteCase{"Unknown", "/wp-login.php", "other"}),
    [](const auto &info) { return std::string(info.param.name); });

struct LogCase {
    const char *name;
    const char *method;
    const char *path;
    unsigned version;
    int status;
    std::size_t bytes;
    const char *line;
};

class AccessLogLines : public ::testing::TestWithParam<LogCase> {};

TEST_P(AccessLogLines, AreOneCommonFormatLineEach) {
    AnsweredRequest request;
    request.method = GetParam().method;
    request.path = GetParam().path;
    request.peer = "10.0.0.7";
    request.version = GetParam().version;
    request.status = GetParam().status;
    request.bodyBytes = GetParam().bytes;
    // 2026-01-02 03:04:05 UTC
    EXPECT_EQ(accessLogLine(request, 1767323045), GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, AccessLogLines,
    ::testing::Values(
        LogCase{"Read", "GET", "/v1/apple_apps/42/versions", 11, 200, 120,
                "10.0.0.7 - - [02/Jan/2026:03:04:05 +0000] \"GET /v1/apple_apps/42/versions HTTP/1.1\" 200 120\n"},
        LogCase{"NoBody", "HEAD", "/repo/Packages", 10, 304, 0,
                "10.0.0.7 - - [02/Jan/2026:03:04:05 +0000] \"HEAD /repo/Packages HTTP/1.0\" 304 -\n"},
        LogCase{
            "HostilePath", "GET", "/a\"b\\c\r\nforged 200", 11, 404, 9,
            "10.0.0.7 - - [02/Jan/2026:03:04:05 +0000] \"GET /a\\x22b\\x5cc\\x0d\\x0aforged 200 HTTP/1.1\" 404 9\n"},
        LogCase{"NotAscii", "GET", "/caf\xc3\xa9", 11, 404, 9,
                "10.0.0.7 - - [02/Jan/2026:03:04:05 +0000] \"GET /caf\\xc3\\xa9 HTTP/1.1\" 404 9\n"},
        LogCase{"Unreadable", "-", "-", 11, 400, 30,
                "10.0.0.7 - - [02/Jan/2026:03:04:05 +0000] \"- - HTTP/1.1\" 400 30\n"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(Metrics, CountEveryRouteStatusAndLatency) {
    ServiceMetrics metrics;
    metrics.record(Route::Versions, 200, std::chrono::microseconds(80));
    metrics.record(Route::Versions, 200, std::chrono::milliseconds(3));
    metrics.record(Route::Versions, 503, std::chrono::seconds(20));
    MetricsSnapshot gauges;
    gauges.openConnections = 7;
    gauges.databaseErrors = 2;
    const std::string text = metrics.render(gauges);
    for (const char *line : {
             "qvdovrin_http_requests_total{route=\"versions\",status=\"200\"} 2\n",
             "qvdovrin_http_requests_total{route=\"versions\",status=\"503\"} 1\n",
             "qvdovrin_http_request_duration_seconds_bucket{route=\"versions\",le=\"0.0001\"} 1\n",
             "qvdovrin_http_request_duration_seconds_bucket{route=\"versions\",le=\"0.005\"} 2\n",
             "qvdovrin_http_request_duration_seconds_bucket{route=\"versions\",le=\"10\"} 2\n",
             "qvdovrin_http_request_duration_seconds_bucket{route=\"versions\",le=\"+Inf\"} 3\n",
             "qvdovrin_http_request_duration_seconds_count{route=\"versions\"} 3\n",
             "qvdovrin_http_request_duration_seconds_sum{route=\"versions\"} 20.0031\n",
             "qvdovrin_open_connections 7\n",
             "qvdovrin_database_errors_total 2\n",
         }) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "\nin:\n" << text;
    }
    // Routes nobody asked for add no series.
    EXPECT_EQ(text.find("route=\"lookup\""), std::string::npos);
}

ServiceRequest get(const std::string &path, const std::string &method = "GET") {
    ServiceRequest request;
    request.method = method;
    request.path = path;
    return request;
}

TEST(Health, AnswersFromTheDatabaseAndNoticesALostFile) {
    const test::TemporaryDirectory directory("qv-health");
    SqliteOptions options;
    options.path = directory.file("v.sqlite");
    auto storage = SqliteStorage::open(options);
    ASSERT_TRUE(storage) << storage.error().describe();
    const VersionService service(**storage);
    const ServiceMetrics metrics;
    const OperatorRoutes routes(**storage, service, metrics, {});
    EXPECT_EQ(routes.answer(get("/healthz"))->status, status::kOk);
    EXPECT_EQ(routes.answer(get("/healthz", "POST"))->status, status::kMethodNotAllowed);
    std::filesystem::remove(options.path);
    const auto lost = routes.answer(get("/healthz"));
    EXPECT_EQ(lost->status, status::kServiceUnavailable);
    EXPECT_NE(lost->body.find("deleted or replaced"), std::string::npos) << lost->body;
    EXPECT_NE(routes.answer(get("/metrics"))->body.find("qvdovrin_database_errors_total 1\n"), std::string::npos);
}

TEST(Health, FailsWhileTheDatabaseFails) {
    BrokenStorage storage;
    const VersionService service(storage);
    const ServiceMetrics metrics;
    const OperatorRoutes routes(storage, service, metrics, {});
    EXPECT_EQ(routes.answer(get("/healthz"))->status, status::kServiceUnavailable);
    EXPECT_FALSE(routes.answer(get("/v1/apple_apps/1/versions")));
    EXPECT_FALSE(routes.answer(get("/repo/Packages"))) << "no package source was given";
}

struct SourceCase {
    const char *name;
    const char *method;
    const char *path;
    int status;
    const char *contentType; // nullptr: not checked
    const char *body;        // nullptr: not checked
};

class PackageSourcePaths : public ::testing::TestWithParam<SourceCase> {
  protected:
    void SetUp() override {
        namespace fs = std::filesystem;
        fs::create_directories(source_.file("repo/debs"));
        std::ofstream(source_.file("repo/Packages")) << "Package: p\n";
        std::ofstream(source_.file("repo/debs/p_1_iphoneos-arm64.deb")) << "deb";
        std::ofstream(source_.file("repo/index.html")) << "<p>index</p>";
        std::ofstream(source_.file("repo/.hidden")) << "hidden";
        std::ofstream(source_.file("secret")) << "outside";
        fs::create_symlink(source_.file("secret"), source_.file("repo/escape"));
        fs::create_symlink("Packages", source_.file("repo/Packages.link"));
    }
    test::TemporaryDirectory source_{"qv-repo"};
};

TEST_P(PackageSourcePaths, ServeOnlyWhatIsInsideTheFolder) {
    auto packages = PackageSource::open(source_.file("repo"));
    ASSERT_TRUE(packages);
    ServiceRequest request = get(GetParam().path, GetParam().method);
    const auto reply = packages->answer(request);
    EXPECT_EQ(reply.status, GetParam().status) << reply.body;
    const auto header = [&](const std::string &name) {
        for (const auto &[key, value] : reply.headers) {
            if (key == name) {
                return value;
            }
        }
        return std::string();
    };
    if (GetParam().contentType != nullptr) {
        EXPECT_EQ(header("Content-Type"), GetParam().contentType);
    }
    if (GetParam().body != nullptr) {
        EXPECT_EQ(reply.body, GetParam().body);
    }
    if (reply.status == status::kOk) {
        // The same file asked for again with its tag is not sent again.
        request.headers.emplace("if-none-match", header("ETag"));
        const auto again = packages->answer(request);
        EXPECT_EQ(again.status, status::kNotModified);
        EXPECT_TRUE(again.body.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Requests, PackageSourcePaths,
    ::testing::Values(SourceCase{"Index", "GET", "/repo/Packages", 200, "text/plain; charset=utf-8", "Package: p\n"},
                      SourceCase{"DotSegment", "GET", "/repo/./Packages", 200, nullptr, "Package: p\n"},
                      SourceCase{"Package", "GET", "/repo/debs/p_1_iphoneos-arm64.deb", 200,
                                 "application/vnd.debian.binary-package", "deb"},
                      SourceCase{"HeadSendsNoBody", "HEAD", "/repo/Packages", 200, nullptr, ""},
                      SourceCase{"FolderIndex", "GET", "/repo/", 200, "text/html; charset=utf-8", "<p>index</p>"},
                      SourceCase{"LinkInside", "GET", "/repo/Packages.link", 200, nullptr, "Package: p\n"},
                      SourceCase{"ParentSegment", "GET", "/repo/../secret", 404, nullptr, nullptr},
                      SourceCase{"ParentInside", "GET", "/repo/debs/../../secret", 404, nullptr, nullptr},
                      SourceCase{"LinkOutside", "GET", "/repo/escape", 404, nullptr, nullptr},
                      SourceCase{"Hidden", "GET", "/repo/.hidden", 404, nullptr, nullptr},
                      SourceCase{"Missing", "GET", "/repo/Packages.gz", 404, nullptr, nullptr},
                      SourceCase{"FolderWithoutIndex", "GET", "/repo/debs", 404, nullptr, nullptr},
                      SourceCase{"NotUtf8", "GET", "/repo/\xff", 404, nullptr, nullptr},
                      SourceCase{"Write", "PUT", "/repo/Packages", 405, nullptr, nullptr}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(PackageSource, HeadStatesTheFileLength) {
    const test::TemporaryDirectory directory("qv-repo");
    std::ofstream(directory.file("Packages")) << "0123456789";
    const auto packages = PackageSource::open(directory.path());
    ASSERT_TRUE(packages);
    const auto reply = packages->answer(get("/repo/Packages", "HEAD"));
    EXPECT_NE(std::find(reply.headers.begin(), reply.headers.end(),
                        std::make_pair(std::string("Content-Length"), std::string("10"))),
              reply.headers.end());
    EXPECT_FALSE(PackageSource::open(directory.file("Packages"))) << "a file is not a package source";
}

// A front told to drain answers the request it is working on, closes idle connections without a reset, takes no
// new ones, and then stops serving by itself.
TEST(Drain, FinishesRequestsUnderWayAndThenStops) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::promise<void> entered;
    FrontLimits limits;
    limits.readWorkers = 1;
    HttpFront front(
        [&](const ServiceRequest &request) {
            if (request.path == "/slow") {
                entered.set_value();
                released.wait();
            }
            return ServiceResponse{status::kOk, "{\"done\":true}", {}};
        },
        limits);
    const int port = front.bind("127.0.0.1", 0).value_or(0);
    auto serving = std::async(std::launch::async, [&] { return front.serve(); });

    const test::RawClient idle(port);
    idle.send("GET /fast HTTP/1.1\r\nHost: x\r\n\r\n");
    ASSERT_NE(idle.readUntil("{\"done\":true}", 1).find("200 OK"), std::string::npos);
    const test::RawClient busy(port);
    busy.send("GET /slow HTTP/1.1\r\nHost: x\r\n\r\n");
    entered.get_future().wait();

    front.drain(std::chrono::seconds(10));
    // The idle connection ends cleanly: end of stream, not a reset.
    EXPECT_EQ(idle.readToClose(), "");
    EXPECT_EQ(serving.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout) << "stopped early";
    EXPECT_FALSE(test::RawClient(port, 1).connected()) << "a new connection was taken while draining";

    release.set_value();
    const std::string reply = busy.readToClose();
    EXPECT_NE(reply.find("200 OK"), std::string::npos) << reply;
    EXPECT_NE(reply.find("Connection: close"), std::string::npos) << reply;
    EXPECT_NE(reply.find("{\"done\":true}"), std::string::npos) << reply;
    ASSERT_EQ(serving.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_TRUE(serving.get());
}

// A client that never finishes its request cannot hold the service up for longer than the grace.
TEST(Drain, GivesUpAfterTheGrace) {
    HttpFront front([](const ServiceRequest &) { return ServiceResponse{status::kOk, "{}", {}}; }, FrontLimits{});
    const int port = front.bind("127.0.0.1", 0).value_or(0);
    auto serving = std::async(std::launch::async, [&] { return front.serve(); });
    const test::RawClient stalled(port);
    stalled.send("GET /half HTTP/1.1\r\nHo");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto start = std::chrono::steady_clock::now();
    front.drain(std::chrono::milliseconds(200));
    ASSERT_EQ(serving.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

} // namespace
} // namespace qv::server
