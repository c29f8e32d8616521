// Requests an attacker would send: each is refused or contained, and the front goes on serving everyone else.
#include <gtest/gtest.h>

#include <string>

#include "server/http_front.h"
#include "support/raw_http.h"

namespace {

using qv::server::FrontLimits;
using qv::server::ServiceRequest;
using qv::server::ServiceResponse;
using qv::test::RawClient;
using qv::test::RunningFront;

const std::string kHost = "Host: service\r\n";

ServiceResponse echo(const ServiceRequest &request) {
    return {200, request.method + " " + request.path + " " + std::to_string(request.body.size()), {}};
}

FrontLimits frontLimits() {
    FrontLimits limits;
    limits.threads = 2;
    return limits;
}

std::string chunkedPostWithTrailer(const std::string &trailer) {
    return "POST /t HTTP/1.1\r\n" + kHost + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n" + trailer + "\r\n";
}

std::string statusLineOf(const std::string &reply) {
    return reply.substr(0, reply.find("\r\n"));
}

// A request that must be answered by one exact status line; afterwards a plain request on a new connection is served.
struct HostileCase {
    std::string name;
    std::string request;
    std::string statusLine;
};

class HostileRequest : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileRequest, IsRefusedAndTheFrontServesOn) {
    RunningFront front(echo, frontLimits());
    {
        const RawClient attacker(front.port());
        attacker.send(GetParam().request);
        EXPECT_EQ(statusLineOf(attacker.readToClose()), GetParam().statusLine);
    }
    const RawClient next(front.port());
    next.send("GET /next HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
    EXPECT_NE(next.readToClose().find("GET /next"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, HostileRequest,
    testing::Values(HostileCase{"TrailerFieldNameOf64KiB", chunkedPostWithTrailer(std::string(65534, 'n') + ": v\r\n"),
                                "HTTP/1.1 431 Request Header Fields Too Large"},
                    HostileCase{"TrailerFieldValueOf64KiB",
                                chunkedPostWithTrailer("X-T: " + std::string(65534, 'v') + "\r\n"),
                                "HTTP/1.1 431 Request Header Fields Too Large"},
                    HostileCase{"TrailerOf17KiB",
                                chunkedPostWithTrailer("X-T: " + std::string(std::size_t{17} * 1024, 'v') + "\r\n"),
                                "HTTP/1.1 431 Request Header Fields Too Large"},
                    HostileCase{"SmallTrailer", chunkedPostWithTrailer("X-T: v\r\n") + "", "HTTP/1.1 200 OK"}),
    [](const auto &info) { return info.param.name; });

// Something that throws while a connection is served closes that connection; the rest are served as before.
TEST(HostileRequest, AFailureInOneConnectionClosesOnlyThatOne) {
    // A reply header longer than the HTTP library can hold makes it throw while the reply is built.
    RunningFront front(
        [](const ServiceRequest &request) {
            ServiceResponse reply = echo(request);
            if (request.path == "/throw") {
                reply.headers.emplace_back("X-Huge", std::string(70000, 'h'));
            }
            return reply;
        },
        frontLimits());
    const RawClient waiting(front.port());
    waiting.send("GET /first HTTP/1.1\r\n" + kHost + "\r\n");
    EXPECT_NE(waiting.readUntil("GET /first", 1).find("GET /first"), std::string::npos);
    {
        const RawClient failing(front.port());
        failing.send("GET /throw HTTP/1.1\r\n" + kHost + "\r\n");
        EXPECT_EQ(failing.readToClose(), "");
    }
    waiting.send("GET /second HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
    EXPECT_NE(waiting.readToClose().find("GET /second"), std::string::npos);
    EXPECT_EQ(front.front().failedConnections(), 1U);
    EXPECT_TRUE(front.front().running());
}

} // namespace
