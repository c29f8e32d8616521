// The HTTP front over raw sockets: strict framing, limits, deadlines, the connection cap and pipelining.
#include "server/http_front.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/raw_http.h"

namespace {

using qv::server::FrontLimits;
using qv::server::HttpFront;
using qv::server::ServiceRequest;
using qv::server::ServiceResponse;

// Replies with what the front made of the request, so framing and decoding can be checked from outside.
ServiceResponse echo(const ServiceRequest &request) {
    std::string query;
    for (const auto &[key, value] : request.query) {
        query.append("[").append(key).append("=").append(value).append("]");
    }
    return {200, request.method + " " + request.path + " " + query + " " + std::to_string(request.body.size()), {}};
}

// The front under test, answering with echo.
class RunningFront : public qv::test::RunningFront {
  public:
    explicit RunningFront(FrontLimits limits) : qv::test::RunningFront(echo, limits) {}
};

using Client = qv::test::RawClient;

FrontLimits smallLimits() {
    FrontLimits limits;
    limits.maxBodyBytes = 64;
    limits.maxHeaderBytes = 1024;
    limits.threads = 2;
    return limits;
}

struct FramingCase {
    std::string name;
    std::string request;
    std::string statusLine;
    std::string bodyPart; // must appear in the reply
};

class Framing : public testing::TestWithParam<FramingCase> {};

TEST_P(Framing, AnswersEachRequestShape) {
    const RunningFront front(smallLimits());
    const Client client(front.port());
    ASSERT_TRUE(client.connected());
    client.send(GetParam().request);
    const std::string reply = client.readUntil(GetParam().bodyPart, 1);
    EXPECT_EQ(reply.substr(0, reply.find("\r\n")), GetParam().statusLine) << reply;
    EXPECT_NE(reply.find(GetParam().bodyPart), std::string::npos) << reply;
}

const std::string kHost = "Host: service\r\n";

INSTANTIATE_TEST_SUITE_P(
    Requests, Framing,
    testing::Values(FramingCase{"DecodesPathAndQuery", "GET /v1/a%20b?x=1+2&y=%41&z HTTP/1.1\r\n" + kHost + "\r\n",
                                "HTTP/1.1 200 OK", "GET /v1/a b [x=1 2][y=A][z=] 0"},
                    FramingCase{"BrokenEscapeStaysAsWritten", "GET /v1/%zz?q=%4 HTTP/1.1\r\n" + kHost + "\r\n",
                                "HTTP/1.1 200 OK", "GET /v1/%zz [q=%4]"},
                    FramingCase{"HostRequiredOnHttp11", "GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 400 Bad Request",
                                "Host header"},
                    FramingCase{"HostOptionalOnHttp10", "GET /old HTTP/1.0\r\n\r\n", "HTTP/1.0 200 OK", "GET /old"},
                    FramingCase{"KeptAliveHttp10SaysSo", "GET /old HTTP/1.0\r\nConnection: keep-alive\r\n\r\n",
                                "HTTP/1.0 200 OK", "Connection: keep-alive\r\n"},
                    FramingCase{"ClosingHttp11SaysSo", "GET / HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n",
                                "HTTP/1.1 200 OK", "Connection: close\r\n"},
                    FramingCase{"HeadStatesTheLengthOfTheBody", "HEAD /h HTTP/1.1\r\n" + kHost + "\r\n",
                                "HTTP/1.1 200 OK", "Content-Length: 10\r\n"},
                    FramingCase{"SpaceBeforeColon", "GET / HTTP/1.1\r\nHost : service\r\n\r\n",
                                "HTTP/1.1 400 Bad Request", "malformed request"},
                    FramingCase{"TwoContentLengths",
                                "POST / HTTP/1.1\r\n" + kHost + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nab",
                                "HTTP/1.1 400 Bad Request", "malformed request"},
                    FramingCase{"LengthAndChunked",
                                "POST / HTTP/1.1\r\n" + kHost +
                                    "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n\r\n",
                                "HTTP/1.1 400 Bad Request", "malformed request"},
                    FramingCase{"CompressedBodyRefused",
                                "POST / HTTP/1.1\r\n" + kHost + "Content-Encoding: gzip\r\nContent-Length: 2\r\n\r\nab",
                                "HTTP/1.1 415 Unsupported Media Type", "must not be compressed"},
                    FramingCase{"BodyOverTheLimit", "POST / HTTP/1.1\r\n" + kHost + "Content-Length: 65\r\n\r\n",
                                "HTTP/1.1 413 Payload Too Large", "error"},
                    FramingCase{"ChunkedBodyOverTheLimit",
                                "POST / HTTP/1.1\r\n" + kHost + "Transfer-Encoding: chunked\r\n\r\n41\r\n" +
                                    std::string(65, 'a') + "\r\n0\r\n\r\n",
                                "HTTP/1.1 413 Payload Too Large", "error"},
                    FramingCase{"HeaderOverTheLimit",
                                "GET / HTTP/1.1\r\n" + kHost + "X-Pad: " + std::string(2000, 'p') + "\r\n\r\n",
                                "HTTP/1.1 431 Request Header Fields Too Large", "too large"},
                    FramingCase{"BodyAtTheLimit",
                                "POST /p HTTP/1.1\r\n" + kHost + "Content-Length: 64\r\n\r\n" + std::string(64, 'b'),
                                "HTTP/1.1 200 OK", "POST /p  64"}),
    [](const auto &info) { return info.param.name; });

TEST(HttpFront, AnswersPipelinedRequestsInOrder) {
    const RunningFront front(smallLimits());
    const Client client(front.port());
    client.send("GET /first HTTP/1.1\r\n" + kHost + "\r\nPOST /second HTTP/1.1\r\n" + kHost +
                "Content-Length: 3\r\n\r\nabcGET /third HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
    const std::string replies = client.readToClose();
    const auto first = replies.find("GET /first");
    const auto second = replies.find("POST /second  3");
    const auto third = replies.find("GET /third");
    ASSERT_NE(third, std::string::npos) << replies;
    EXPECT_LT(first, second);
    EXPECT_LT(second, third);
}

TEST(HttpFront, SaysContinueBeforeAnExpectedBody) {
    const RunningFront front(smallLimits());
    const Client client(front.port());
    client.send("POST /e HTTP/1.1\r\n" + kHost + "Content-Length: 2\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_EQ(client.readUntil("\r\n\r\n", 1), "HTTP/1.1 100 Continue\r\n\r\n");
    client.send("ok");
    EXPECT_NE(client.readUntil("POST /e  2", 1).find("POST /e  2"), std::string::npos);
}

TEST(HttpFront, RefusesConnectionsBeyondTheCapAndServesThemAgainLater) {
    FrontLimits limits = smallLimits();
    limits.maxConnections = 2;
    const RunningFront front(limits);
    auto held = std::make_unique<std::vector<std::unique_ptr<Client>>>();
    for (int i = 0; i < 2; ++i) {
        held->push_back(std::make_unique<Client>(front.port()));
        held->back()->send("GET /held HTTP/1.1\r\n" + kHost + "\r\n");
        held->back()->readUntil("GET /held", 1); // admitted and answered
    }
    const Client refused(front.port());
    const std::string refusal = refused.readToClose();
    EXPECT_EQ(refusal.substr(0, refusal.find("\r\n")), "HTTP/1.1 503 Service Unavailable");
    EXPECT_NE(refusal.find("Retry-After: 1"), std::string::npos);
    held.reset();
    std::string later;
    // The held connections close asynchronously; a new one is admitted once they are gone.
    for (int attempt = 0; attempt < 100 && later.find("200 OK") == std::string::npos; ++attempt) {
        const Client again(front.port());
        again.send("GET /again HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
        later = again.readToClose();
    }
    EXPECT_NE(later.find("GET /again"), std::string::npos);
}

struct DeadlineCase {
    std::string name;
    std::string partialRequest; // sent, then nothing more
    bool answered;
};

class Deadlines : public testing::TestWithParam<DeadlineCase> {};

// A client that stops sending is cut off, and other clients are served while it hangs.
TEST_P(Deadlines, CutOffAStalledClientWhileServingOthers) {
    FrontLimits limits = smallLimits();
    limits.headerDeadline = std::chrono::milliseconds(300);
    limits.bodyDeadline = std::chrono::milliseconds(300);
    limits.idleTimeout = std::chrono::milliseconds(300);
    const RunningFront front(limits);
    const Client stalled(front.port());
    stalled.send(GetParam().partialRequest);
    {
        const Client other(front.port());
        other.send("GET /other HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
        EXPECT_NE(other.readToClose().find("GET /other"), std::string::npos);
    }
    // Returns because the front closed the connection; the receive timeout of 5 s would fail the check below.
    const std::string rest = stalled.readToClose();
    EXPECT_EQ(rest.find("GET /other"), std::string::npos);
    EXPECT_EQ(rest.rfind("HTTP/1.1 200", 0) == 0, GetParam().answered) << rest;
}

INSTANTIATE_TEST_SUITE_P(
    Stalls, Deadlines,
    testing::Values(DeadlineCase{"IdleConnection", "", false},
                    DeadlineCase{"HalfAHeader", "GET / HTTP/1.1\r\nHo", false},
                    DeadlineCase{"HalfABody", "POST / HTTP/1.1\r\nHost: s\r\nContent-Length: 9\r\n\r\nab", false},
                    DeadlineCase{"IdleAfterAReply", "GET / HTTP/1.1\r\nHost: s\r\n\r\n", true}),
    [](const auto &info) { return info.param.name; });

} // namespace
