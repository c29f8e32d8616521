// qvdovrin lookup, versions and report against a service that misbehaves: each kind of failure has its own line.
#include "support/cli_runner.h"
#include "support/loopback.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct ErrorCase {
    std::string arguments; // {service}, {silent} and {closed} stand for the peers' URLs
    int exitCode;
    std::string outputStart; // stdout when the command succeeds, stderr when it fails
};

class ServiceErrors : public testing::Test {
  protected:
    void SetUp() override {
        service_.routes().Get("/lookup", [](const httplib::Request &request, httplib::Response &reply) {
            const std::string id = request.get_param_value("id");
            if (id == "1") {
                reply.set_content(R"({"resultCount":1,"results":[{"bundleId":"com.a","trackId":1}]})", "text/json");
            } else if (id == "2") {
                reply.set_content(R"({"resultCount":0,"results":[]})", "text/json");
            } else if (id == "3") {
                reply.status = 503;
                reply.set_content("busy", "text/plain");
            } else {
                reply.set_content("<html>", "text/html");
            }
        });
        service_.routes().Get(
            R"(/v1/apple_apps/(\d+)/versions)", [](const httplib::Request &request, httplib::Response &reply) {
                const std::string id = request.matches[1];
                if (id == "1") {
                    reply.set_content(R"([{"bundle_version":"1.0","external_identifier":"9"}])", "application/json");
                } else if (id == "3") {
                    reply.status = 500;
                } else if (id == "4") {
                    reply.set_content("<html>", "text/html");
                } else {
                    reply.set_content(R"({"versions":[]})", "application/json");
                }
            });
        service_.routes().Post(R"(/v1/apple_apps/(\d+)/versions)",
                               [this](const httplib::Request &, httplib::Response &reply) {
                                   reply.status = 307;
                                   reply.set_header("Location", service_.url() + "elsewhere");
                               });
        service_.start();
        std::ofstream(directory_.file("item.json"))
            << R"({"bundleId":"com.a","id":7,"name":"A","offers":[{"version":{"display":"1","externalId":2}}]})";
    }

    // The text with every placeholder replaced; {closed-host} is the closed peer's HOST:PORT.
    std::string expand(std::string text) const {
        const std::string closedHost = closed_.substr(std::string("http://").size(), closed_.size() - 8);
        for (const auto &[placeholder, url] :
             {std::pair{"{service}", service_.url()}, std::pair{"{silent}", silent_.url()},
              std::pair{"{closed}", closed_}, std::pair{"{closed-host}", closedHost},
              std::pair{"{item}", directory_.file("item.json")}}) {
            for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder)) {
                text.replace(at, std::string(placeholder).size(), url);
            }
        }
        return text;
    }

    qv::test::CliOutcome run(const std::string &arguments) const {
        const std::string expanded = expand(arguments);
        std::vector<std::string> words;
        for (std::size_t start = 0; start < expanded.size();) {
            const std::size_t end = std::min(expanded.find(' ', start), expanded.size());
            words.push_back(expanded.substr(start, end - start));
            start = end + 1;
        }
        return qv::test::runInProcess(words);
    }

    qv::test::TemporaryDirectory directory_{"qv-service-errors"};
    qv::test::LoopbackServer service_;
    qv::test::SilentListener silent_;
    std::string closed_ = qv::test::loopbackUrl(qv::test::closedLoopbackPort());
};

TEST_F(ServiceErrors, EachFailureHasItsOwnLine) {
    const std::vector<ErrorCase> cases = {
        {"lookup 1 --server {service}", 0, "com.a\n"},
        {"lookup 2 --server {service}", 1, "qvdovrin: no app with store identifier 2 at {service}\n"},
        {"lookup 3 --server {service}", 1,
         "qvdovrin: cannot look up store identifier 3 at {service}: the service answered with HTTP status 503\n"},
        {"lookup 4 --server {service}", 1,
         "qvdovrin: cannot look up store identifier 4 at {service}: the reply is not JSON"},
        {"lookup 1 --server {silent} --timeout 0.2", 1,
         "qvdovrin: cannot look up store identifier 1 at {silent}: timed out after 0.2 s ("},
        {"lookup --bundle-id com.a --server {closed}", 1,
         "qvdovrin: cannot look up bundle identifier com.a at {closed}: cannot reach {closed-host} ("},
        {"versions 1 --server {service}", 0, "VERSION  EXTERNAL ID\n1.0      9\n"},
        {"versions 3 --server {service}", 1,
         "qvdovrin: cannot load the versions of 3: the service answered with HTTP status 500\n"},
        {"versions 4 --server {service}", 1, "qvdovrin: cannot load the versions of 4: the reply is not JSON"},
        {"versions 5 --server {service}", 1,
         "qvdovrin: cannot load the versions of 5: the reply is not a list of versions\n"},
        {"versions 1 --server {silent} --timeout 0.2", 1,
         "qvdovrin: cannot load the versions of 1: timed out after 0.2 s ("},
        {"versions 1 --server {closed}", 1, "qvdovrin: cannot load the versions of 1: cannot reach {closed-host} ("},
        {"report item {item} --server {service}", 1,
         "qvdovrin: the service answered the report with a redirect (HTTP 307); a report is never sent on to another "
         "address\n"},
        {"report item {item} --server {closed}", 1,
         "qvdovrin: could not send the report: cannot reach {closed-host} ("},
        {"report item {item} --server {silent} --timeout 0.2", 1,
         "qvdovrin: could not send the report: timed out after 0.2 s ("},
    };
    for (const ErrorCase &testCase : cases) {
        const auto outcome = run(testCase.arguments);
        const std::string &said = testCase.exitCode == 0 ? outcome.out : outcome.err;
        const std::string expected = expand(testCase.outputStart);
        EXPECT_EQ(outcome.exitCode, testCase.exitCode) << testCase.arguments << ": " << outcome.err;
        EXPECT_EQ(said.substr(0, expected.size()), expected) << testCase.arguments;
        if (testCase.exitCode != 0) {
            EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
        }
    }
}

TEST_F(ServiceErrors, TimeoutMustBeAPositiveNumberOfSecondsUpToAnHour) {
    for (const std::string value : {"0", "-1", "abc", "1s", "nan", "inf", "3601", "1e9"}) {
        for (const std::string command : {"versions 1", "lookup 1", "downgrade 1", "report item x.json"}) {
            const auto outcome = run(std::string(command).append(" --server {service} --timeout ").append(value));
            EXPECT_EQ(outcome.exitCode, 2) << command << " --timeout " << value << ": " << outcome.err;
        }
    }
    EXPECT_EQ(run("versions 1 --server {service} --timeout 2.5").exitCode, 0);
}

} // namespace
