// Requests an attacker would send: each is refused or contained, and the front goes on serving everyone else.
#include <gtest/gtest.h>

#include <malloc.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "server/http_front.h"
#include "server/version_service.h"
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
    return "POST /t HTTP/1.1\r\n" + kHost + "Connection: close\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n" +
           trailer + "\r\n";
}

// A POST whose body, if the framing were misread, is a second request.
std::string smuggling(const std::string &codingLines) {
    const std::string hidden = "GET /smuggled HTTP/1.1\r\n" + kHost + "\r\n";
    return "POST /t HTTP/1.1\r\n" + kHost + codingLines + "Content-Type: application/json\r\n\r\n" + "0\r\n\r\n" +
           hidden;
}

std::string statusLineOf(const std::string &reply) {
    return reply.substr(0, reply.find("\r\n"));
}

// A request that must be answered by one exact status line, never by a reply to a request smuggled in its body;
// afterwards a plain request on a new connection is served.
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
        const std::string replies = attacker.readToClose();
        EXPECT_EQ(statusLineOf(replies), GetParam().statusLine) << replies;
        EXPECT_EQ(replies.find("GET /smuggled"), std::string::npos) << replies;
    }
    const RawClient next(front.port());
    next.send("GET /next HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
    EXPECT_NE(next.readToClose().find("GET /next"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, HostileRequest,
    testing::Values(
        HostileCase{"TrailerFieldNameOf64KiB", chunkedPostWithTrailer(std::string(65534, 'n') + ": v\r\n"),
                    "HTTP/1.1 431 Request Header Fields Too Large"},
        HostileCase{"TrailerFieldValueOf64KiB", chunkedPostWithTrailer("X-T: " + std::string(65534, 'v') + "\r\n"),
                    "HTTP/1.1 431 Request Header Fields Too Large"},
        HostileCase{"TrailerOf17KiB",
                    chunkedPostWithTrailer("X-T: " + std::string(std::size_t{17} * 1024, 'v') + "\r\n"),
                    "HTTP/1.1 431 Request Header Fields Too Large"},
        HostileCase{"SmallTrailer", chunkedPostWithTrailer("X-T: v\r\n") + "", "HTTP/1.1 200 OK"},
        HostileCase{"XchunkedCoding", smuggling("Transfer-Encoding: xchunked\r\n"), "HTTP/1.1 400 Bad Request"},
        HostileCase{"ChunkedThenIdentity", smuggling("Transfer-Encoding: chunked, identity\r\n"),
                    "HTTP/1.1 400 Bad Request"},
        HostileCase{"IdentityCoding", smuggling("Transfer-Encoding: identity\r\n"), "HTTP/1.1 400 Bad Request"},
        HostileCase{"TwoCodingFields", smuggling("Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n"),
                    "HTTP/1.1 400 Bad Request"},
        HostileCase{"TwoHostHeaders", "GET / HTTP/1.1\r\n" + kHost + "Host: other\r\n\r\n", "HTTP/1.1 400 Bad Request"},
        HostileCase{"FoldedHeaderLine", "GET / HTTP/1.1\r\n" + kHost + "X-A: one\r\n two\r\n\r\n",
                    "HTTP/1.1 400 Bad Request"},
        HostileCase{"FoldedWithTab", "GET / HTTP/1.1\r\n" + kHost + "X-A: one\r\n\ttwo\r\n\r\n",
                    "HTTP/1.1 400 Bad Request"},
        HostileCase{"UnknownExpectation",
                    "POST / HTTP/1.1\r\n" + kHost + "Expect: 200-ok\r\nContent-Length: 2\r\n\r\nab",
                    "HTTP/1.1 417 Expectation Failed"}),
    [](const auto &info) { return info.param.name; });

// Something that throws while a connection is served closes that connection; the rest are served as before.
TEST(HostileRequest, AFailureInOneConnectionClosesOnlyThatOne) {
    // Answers from memory run on the socket threads, outside the guard around the request handler.
    RunningFront front(echo, frontLimits(), [](const ServiceRequest &request) -> std::optional<ServiceResponse> {
        if (request.path == "/throw") {
            throw std::runtime_error("a fault while answering from memory");
        }
        return std::nullopt;
    });
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
    // The failure is counted where the event loop catches it, which is after the socket has already closed.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (front.front().failedConnections() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(front.front().failedConnections(), 1U);
    EXPECT_TRUE(front.front().running());
}

// HEAD states the length a GET would get and sends no body, so the next reply on the connection starts right after.
TEST(HostileRequest, HeadGetsHeadersOnlyAndKeepsTheConnectionInStep) {
    RunningFront front(echo, frontLimits());
    const RawClient client(front.port());
    client.send("HEAD /h HTTP/1.1\r\n" + kHost + "\r\nGET /after HTTP/1.1\r\n" + kHost + "Connection: close\r\n\r\n");
    const std::string replies = client.readToClose();
    const std::string getBody = "GET /after 0";
    const auto headEnd = replies.find("\r\n\r\n");
    ASSERT_NE(headEnd, std::string::npos) << replies;
    EXPECT_EQ(statusLineOf(replies), "HTTP/1.1 200 OK");
    EXPECT_NE(replies.find("Content-Length: " + std::to_string(std::string("HEAD /h 0").size())), std::string::npos);
    EXPECT_EQ(replies.substr(headEnd + 4, 12), "HTTP/1.1 200") << replies;
    EXPECT_NE(replies.find(getBody), std::string::npos) << replies;
}

// A socket that never sends a byte is closed at the header deadline, not after the longer idle timeout.
TEST(HostileRequest, ASilentConnectionIsClosedAtTheHeaderDeadline) {
    FrontLimits limits = frontLimits();
    limits.headerDeadline = std::chrono::milliseconds(200);
    limits.idleTimeout = std::chrono::seconds(30);
    RunningFront front(echo, limits);
    const RawClient silent(front.port(), 10);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(silent.readToClose(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

// Storage whose writes wait until the gate opens, as they would behind another process's write lock.
class GatedStorage : public qv::server::VersionStorage {
  public:
    void open() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            open_ = true;
        }
        opened_.notify_all();
    }

    qv::Result<void> recordReport(const qv::server::VersionReport &) override {
        std::unique_lock<std::mutex> lock(mutex_);
        opened_.wait(lock, [this] { return open_; });
        return {};
    }
    qv::Result<std::vector<qv::server::StoredVersion>> versionsOf(std::int64_t) override {
        return std::vector<qv::server::StoredVersion>{{"1.0", 7}};
    }
    qv::Result<std::vector<qv::server::AppSummary>> appsWithId(std::int64_t) override {
        return std::vector<qv::server::AppSummary>{};
    }
    qv::Result<std::vector<qv::server::AppSummary>> appsWithBundleId(const std::string &) override {
        return std::vector<qv::server::AppSummary>{};
    }
    qv::Result<std::vector<qv::server::VersionHistory>> versionHistoryOf(std::int64_t) override {
        return std::vector<qv::server::VersionHistory>{};
    }
    qv::Result<std::vector<qv::server::AppSummary>> searchApps(const qv::server::AppSearch &, std::size_t) override {
        return std::vector<qv::server::AppSummary>{};
    }
    qv::Result<std::vector<qv::server::AppSummary>> recentlyReportedApps(std::size_t) override {
        return std::vector<qv::server::AppSummary>{};
    }
    qv::Result<qv::server::StorageTotals> totals() override { return qv::server::StorageTotals{}; }
    qv::Result<void> recordSearchEvent(const qv::server::SearchEvent &) override { return recordReport({}); }
    qv::Result<std::int64_t> searchEventCount() override { return 0; }
    qv::Result<std::int64_t> versionBytes() override { return 0; }
    std::string clientKey() const override { return "key"; }
    qv::Result<void> ping() override { return {}; }

  private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

std::string reportRequest(int appId) {
    const std::string body = R"({"bundle_id":"b","identifier":")" + std::to_string(appId) +
                             R"(","title":"t","versions":[{"display":"2.0","externalId":9}]})";
    return "POST /v1/apple_apps/" + std::to_string(appId) + "/versions HTTP/1.1\r\n" + kHost +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// The gate opens when the test ends, whatever its outcome, so no worker is left waiting.
struct OpenAtEnd {
    GatedStorage &storage;
    ~OpenAtEnd() { storage.open(); }
};

// Writes stuck behind a lock hold neither the socket threads nor the readers: a list already answered once comes
// back at once, and a write beyond the queue is refused at once.
TEST(HostileRequest, ReadsDoNotWaitForStuckWrites) {
    GatedStorage storage;
    const OpenAtEnd openAtEnd{storage};
    qv::server::VersionService service(storage);
    FrontLimits limits = frontLimits();
    limits.writeWorkers = 1;
    limits.maxQueuedRequests = 1;
    qv::server::HttpFront front(service, limits);
    const int port = front.bind("127.0.0.1", 0).value_or(0);
    std::thread serving([&front] { front.serve(); });
    const std::string read = "GET /v1/apple_apps/5/versions HTTP/1.1\r\n" + kHost + "\r\n";
    const RawClient reader(port, 3);
    reader.send(read);
    EXPECT_NE(reader.readUntil("]", 1).find("\"1.0\""), std::string::npos);
    std::vector<std::unique_ptr<RawClient>> writers;
    // One write runs, one waits in the queue, and one more finds it full.
    for (int app = 1; app <= 2; ++app) {
        writers.push_back(std::make_unique<RawClient>(port, 3));
        writers.back()->send(reportRequest(app));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    const RawClient refused(port, 3);
    refused.send(reportRequest(3));
    const std::string refusal = refused.readUntil("}", 1);
    EXPECT_EQ(statusLineOf(refusal), "HTTP/1.1 503 Service Unavailable");
    EXPECT_NE(refusal.find("Retry-After: 1"), std::string::npos);
    reader.send(read);
    EXPECT_NE(reader.readUntil("]", 1).find("\"1.0\""), std::string::npos);
    storage.open();
    for (const auto &writer : writers) {
        EXPECT_EQ(statusLineOf(writer->readUntil("}", 1)), "HTTP/1.1 200 OK");
    }
    front.stop();
    serving.join();
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QV_MALLOC_IS_WRAPPED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QV_MALLOC_IS_WRAPPED 1
#endif
#endif

// Bytes the process has taken from malloc and not given back.
std::size_t heapInUse() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Clients that read a large reply and then sit idle hold no copy of it in the front.
TEST(HostileRequest, IdleClientsHoldNothingOfTheirLastReply) {
#ifdef QV_MALLOC_IS_WRAPPED
    GTEST_SKIP() << "the sanitizer's allocator keeps freed memory for itself";
#endif
    constexpr std::size_t kReplyBytes = std::size_t{1536} * 1024;
    constexpr int kClients = 40;
    RunningFront front(
        [](const ServiceRequest &) {
            return ServiceResponse{200, std::string(kReplyBytes, 'r'), {}};
        },
        frontLimits());
    const std::size_t before = heapInUse();
    std::vector<std::unique_ptr<RawClient>> idle;
    for (int i = 0; i < kClients; ++i) {
        idle.push_back(std::make_unique<RawClient>(front.port()));
        idle.back()->send("GET /large HTTP/1.1\r\n" + kHost + "\r\n");
        ASSERT_GE(idle.back()->readBytes(kReplyBytes).size(), kReplyBytes);
    }
    // The last write's completion may run a moment after the client has read its bytes.
    std::size_t held = heapInUse() - std::min(heapInUse(), before);
    for (int wait = 0; wait < 100 && held > kReplyBytes * 4; ++wait) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        held = heapInUse() - std::min(heapInUse(), before);
    }
    EXPECT_LT(held, kReplyBytes * 4) << "idle clients hold " << held << " bytes";
}

} // namespace
