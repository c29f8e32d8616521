// The libcurl adapter against loopback peers: which redirects it follows, and how each failure reads.
#include "posix/curl_http.h"
#include "support/loopback.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

namespace {

struct FetchCase {
    std::string name;
    std::string method;
    std::string target;                 // "origin/...", "silent" or "closed"
    std::optional<double> adapterLimit; // the adapter's own limit, which wins over the request's
    double requestLimit;
    int status;             // 0: no answer
    std::string errorStart; // with {silent} and {closed} standing for those peers' authorities
    int landed;             // requests that reached the other origin
};

class CurlHttpTest : public testing::Test {
  protected:
    void SetUp() override {
        other_.routes().Get("/landed", [this](const httplib::Request &, httplib::Response &reply) {
            ++landed_;
            reply.set_content("landed", "text/plain");
        });
        other_.routes().Post("/landed", [this](const httplib::Request &, httplib::Response &reply) {
            ++landed_;
            reply.set_content("landed", "text/plain");
        });
        other_.start();
        const auto redirect = [this](const httplib::Request &, httplib::Response &reply) {
            reply.status = 307;
            reply.set_header("Location", other_.url() + "landed");
        };
        origin_.routes().Get(
            "/ok", [](const httplib::Request &, httplib::Response &reply) { reply.set_content("fine", "text/plain"); });
        origin_.routes().Get("/moved", redirect);
        origin_.routes().Post("/moved", redirect);
        origin_.start();
    }

    std::string urlOf(const std::string &target) const {
        if (target == "silent") {
            return silent_.url();
        }
        if (target == "closed") {
            return closedUrl_;
        }
        return origin_.url() + target.substr(std::string("origin/").size());
    }

    std::string authorityOf(const std::string &url) const { return url.substr(7, url.size() - 8); }

    qv::test::LoopbackServer origin_;
    qv::test::LoopbackServer other_;
    qv::test::SilentListener silent_;
    std::string closedUrl_ = qv::test::loopbackUrl(qv::test::closedLoopbackPort());
    std::atomic<int> landed_{0};
};

TEST_F(CurlHttpTest, FollowsOnlySafeRedirectsAndNamesEachFailure) {
    const std::vector<FetchCase> cases = {
        {"answered", "GET", "origin/ok", std::nullopt, 5, 200, "", 0},
        {"GET follows a redirect", "GET", "origin/moved", std::nullopt, 5, 200, "", 1},
        {"POST stays with its origin", "POST", "origin/moved", std::nullopt, 5, 307, "", 0},
        {"request's own limit", "GET", "silent", std::nullopt, 0.2, 0, "timed out after 0.2 s (http://{silent}/)", 0},
        {"adapter's limit wins", "GET", "silent", 0.3, 60, 0, "timed out after 0.3 s (http://{silent}/)", 0},
        {"nobody listening", "GET", "closed", std::nullopt, 5, 0, "cannot reach {closed} (", 0},
        {"nobody listening, POST", "POST", "closed", std::nullopt, 5, 0, "cannot reach {closed} (", 0},
    };
    for (const FetchCase &testCase : cases) {
        landed_ = 0;
        std::optional<qv::posix::CurlHttp> http;
        if (testCase.adapterLimit) {
            http.emplace(*testCase.adapterLimit);
        } else {
            http.emplace();
        }
        qv::HttpRequest request;
        request.method = testCase.method;
        request.url = urlOf(testCase.target);
        request.timeoutSeconds = testCase.requestLimit;
        if (testCase.method == "POST") {
            request.body = "{}";
        }
        const qv::HttpResult result = http->fetch(request);
        EXPECT_EQ(result.status, testCase.status) << testCase.name;
        EXPECT_EQ(landed_, testCase.landed) << testCase.name;
        std::string expected = testCase.errorStart;
        for (const auto &[placeholder, target] : {std::pair{"{silent}", "silent"}, std::pair{"{closed}", "closed"}}) {
            const auto at = expected.find(placeholder);
            if (at != std::string::npos) {
                expected.replace(at, std::string(placeholder).size(), authorityOf(urlOf(target)));
            }
        }
        if (expected.empty()) {
            EXPECT_FALSE(result.error.has_value()) << testCase.name << ": " << *result.error;
        } else {
            ASSERT_TRUE(result.error.has_value()) << testCase.name;
            EXPECT_EQ(result.error->substr(0, expected.size()), expected) << testCase.name;
        }
    }
}

} // namespace
