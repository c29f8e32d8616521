// The event-driven HTTP front: accepts, frames and times every connection, and hands whole requests to the handler.
#include "server/http_front.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "base/text.h"
#include "server/request_bodies.h"

namespace qv::server {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = net::ip::tcp;

namespace {

constexpr int kMaxPort = 65535;
constexpr std::string_view kJsonType = "application/json";
constexpr int kHttp11 = 11;
constexpr int kHeaderFieldsTooLarge = 431;
constexpr int kUnsupportedMediaType = 415;
constexpr std::size_t kFirstReadBytes = 4096;
constexpr std::chrono::milliseconds kAcceptRetry{50};
constexpr std::chrono::seconds kLingerTime{2};
constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr int kExpectationFailed = 417;
constexpr std::string_view kUnknown = "-";
constexpr std::chrono::milliseconds kDrainPoll{20};
constexpr std::size_t kKeptHeadBytes = 1024;
constexpr int kFirstSuccess = 200;
constexpr int kNoContent = 204;
constexpr unsigned kVersionBase = 10; // HTTP/1.1 is version 11

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10; // NOLINT(readability-magic-numbers): hexadecimal digits
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10; // NOLINT(readability-magic-numbers): hexadecimal digits
    }
    return -1;
}

std::string percentDecoded(std::string_view text, bool plusIsSpace) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%' && i + 2 < text.size()) {
            const int high = hexDigit(text[i + 1]);
            const int low = hexDigit(text[i + 2]);
            if (high >= 0 && low >= 0) {
                decoded.push_back(static_cast<char>(high * 16 + low)); // NOLINT(readability-magic-numbers)
                i += 2;
                continue;
            }
        }
        decoded.push_back(plusIsSpace && c == '+' ? ' ' : c);
    }
    return decoded;
}

// A fixed set of threads taking jobs from a bounded queue; a job offered to a full queue is declined at once.
class WorkerPool {
  public:
    WorkerPool(int threads, std::size_t maxQueued) : threads_(threads), maxQueued_(maxQueued) {}
    ~WorkerPool() { stop(); }
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    bool enabled() const { return threads_ > 0; }

    void start() {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = false;
        for (int i = 0; i < threads_; ++i) {
            workers_.emplace_back([this] { work(); });
        }
    }

    // Joins the threads; jobs still queued are dropped, and with them the connections they would have answered.
    void stop() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        ready_.notify_all();
        for (auto &worker : workers_) {
            worker.join();
        }
        workers_.clear();
        const std::lock_guard<std::mutex> lock(mutex_);
        jobs_.clear();
    }

    bool offer(std::function<void()> job) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_ || jobs_.size() >= maxQueued_) {
                return false;
            }
            jobs_.push_back(std::move(job));
        }
        ready_.notify_one();
        return true;
    }

  private:
    void work() {
        while (true) {
            std::function<void()> job;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                ready_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
                if (stopping_) {
                    return;
                }
                job = std::move(jobs_.front());
                jobs_.pop_front();
            }
            job();
        }
    }

    const int threads_;
    const std::size_t maxQueued_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> workers_;
    bool stopping_ = false;
};

class Connection;

// What every connection shares: the handlers, the limits, the worker pools and the count of open connections.
struct Shared {
    explicit Shared(const FrontLimits &frontLimits)
        : limits(frontLimits), readers(frontLimits.readWorkers, frontLimits.maxQueuedRequests),
          writers(frontLimits.writeWorkers, frontLimits.maxQueuedRequests) {}

    RequestHandler handler;
    MemoryHandler fromMemory;
    FrontLimits limits;
    WorkerPool readers;
    WorkerPool writers;
    std::atomic<std::size_t> open{0};
    FrontObserver *observer = nullptr;
    // Set once the front drains: no request starts on a connection after its current one.
    std::atomic<bool> draining{false};
    // The open connections, so that draining can reach the idle ones; touched once per connection, not per request.
    std::mutex liveMutex;
    std::unordered_set<Connection *> live;
};

// Refusals that need only the header, sent before any of the body is read.
std::optional<ServiceResponse> refusalForHeader(const http::request_parser<http::string_body>::value_type &header) {
    if (header.version() >= kHttp11 && header.find(http::field::host) == header.end()) {
        return errorResponse(status::kBadRequest, "an HTTP/1.1 request needs a Host header");
    }
    if (header.count(http::field::host) > 1) {
        return errorResponse(status::kBadRequest, "a request has one Host header");
    }
    // Anything but plain chunked leaves the body's end to interpretation, and a body read as the next request is
    // a request smuggled past whatever stands in front of the service.
    const auto codings = header.count(http::field::transfer_encoding);
    if (codings > 1 ||
        (codings == 1 && !beast::iequals(header.find(http::field::transfer_encoding)->value(), "chunked"))) {
        return errorResponse(status::kBadRequest, "the only transfer coding accepted is chunked");
    }
    const auto encoding = header.find(http::field::content_encoding);
    if (encoding != header.end() && !beast::iequals(encoding->value(), "identity")) {
        return errorResponse(kUnsupportedMediaType, "request bodies must not be compressed");
    }
    return std::nullopt;
}

ServiceRequest serviceRequestOf(http::request<http::string_body> &&request, const std::string &peer) {
    auto [path, query] = splitTarget(std::string_view(request.target().data(), request.target().size()));
    ServiceRequest serviceRequest{
        std::string(request.method_string()), std::move(path), std::move(query), std::move(request.body()), {}, peer};
    for (const auto &field : request) {
        std::string name(field.name_string());
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        serviceRequest.headers.emplace(std::move(name), std::string(field.value()));
    }
    return serviceRequest;
}

ServiceResponse answer(const Shared &shared, const ServiceRequest &request) {
    try {
        return shared.handler(request);
    } catch (const std::exception &failure) {
        return errorResponse(status::kInternalError, std::string("internal error: ") + failure.what());
    } catch (...) {
        return errorResponse(status::kInternalError, "internal error");
    }
}

ServiceResponse busy() {
    ServiceResponse reply = errorResponse(status::kServiceUnavailable, "the service is busy; try again in a moment");
    reply.headers.emplace_back("Retry-After", "1");
    return reply;
}

// The status line and header fields of a reply, framed as the message would be: the type and length of its body
// (none for 1xx, 204 and 304, which carry no body), whether the connection stays open, then the reply's own
// fields, which replace a framing field of the same name: a 304 states the length of the body it stands for.
void writeHead(std::string &head, const ServiceResponse &reply, bool keepAlive, unsigned version) {
    const auto given = [&reply](std::string_view name) {
        return std::any_of(reply.headers.begin(), reply.headers.end(), [name](const auto &field) {
            return beast::iequals(field.first, beast::string_view(name.data(), name.size()));
        });
    };
    const auto reason = http::obsolete_reason(static_cast<http::status>(reply.status));
    head.clear();
    head.append("HTTP/")
        .append(std::to_string(version / kVersionBase))
        .append(".")
        .append(std::to_string(version % kVersionBase));
    head.append(" ").append(std::to_string(reply.status)).append(" ").append(reason.data(), reason.size());
    head.append("\r\n");
    if (!given("Content-Type")) {
        head.append("Content-Type: ").append(kJsonType).append("\r\n");
    }
    const bool bodiless =
        reply.status < kFirstSuccess || reply.status == kNoContent || reply.status == status::kNotModified;
    if (!bodiless && !given("Content-Length")) {
        head.append("Content-Length: ").append(std::to_string(reply.body.size())).append("\r\n");
    }
    if (version >= kHttp11 && !keepAlive) {
        head.append("Connection: close\r\n");
    } else if (version < kHttp11 && keepAlive) {
        head.append("Connection: keep-alive\r\n");
    }
    for (const auto &[name, value] : reply.headers) {
        head.append(name).append(": ").append(value).append("\r\n");
    }
    head.append("\r\n");
}

// One client connection: reads one request at a time under its deadlines and answers in order, so pipelined
// requests get their replies in the order they came.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    // The read buffer never grows past the header limit: a chunked body's trailer must sit in it whole before the
    // parser takes it, and the parser itself puts no bound on a trailer.
    Connection(tcp::socket socket, std::shared_ptr<Shared> shared)
        : stream_(std::move(socket)), buffer_(shared->limits.maxHeaderBytes), shared_(std::move(shared)) {}
    ~Connection() {
        {
            const std::lock_guard<std::mutex> lock(shared_->liveMutex);
            shared_->live.erase(this);
        }
        --shared_->open;
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    net::any_io_executor executor() { return stream_.get_executor(); }

    void start() {
        beast::error_code error;
        const auto remote = stream_.socket().remote_endpoint(error);
        if (!error) {
            peer_ = remote.address().to_string();
        }
        {
            const std::lock_guard<std::mutex> lock(shared_->liveMutex);
            shared_->live.insert(this);
        }
        awaitRequest();
    }

    // Runs on the connection's strand once the front drains: a connection waiting for its next request gets no
    // further one. It lingers, so that a request already on its way is read and dropped rather than met with a reset.
    void postDrainIfIdle() {
        net::post(stream_.get_executor(), [self = shared_from_this()] { self->drainIfIdle(); });
    }

  private:
    void drainIfIdle() {
        if (!idle_) {
            return;
        }
        // The waiting read ends at once and its handler lingers.
        lingering_ = true;
        stream_.cancel();
    }

    const FrontLimits &limits() const { return shared_->limits; }

    // A new connection has the header deadline from its accept to send a whole header, so silent sockets cannot
    // sit on connection slots; a kept-alive one waits under the idle timeout, and its header deadline starts with
    // the next request's first byte.
    void awaitRequest() {
        scanned_ = 0;
        if (shared_->draining) {
            linger();
            return;
        }
        if (buffer_.size() > 0) {
            stream_.expires_after(limits().headerDeadline);
            collectHeader();
            return;
        }
        stream_.expires_after(answered_ == 0 ? limits().headerDeadline : limits().idleTimeout);
        idle_ = true;
        stream_.async_read_some(buffer_.prepare(firstReadBytes()),
                                [self = shared_from_this()](beast::error_code error, std::size_t bytes) {
                                    self->idle_ = false;
                                    if (self->lingering_) {
                                        self->linger();
                                        return;
                                    }
                                    if (error) {
                                        self->close();
                                        return;
                                    }
                                    self->buffer_.commit(bytes);
                                    if (self->answered_ > 0) {
                                        self->stream_.expires_after(self->limits().headerDeadline);
                                    }
                                    self->collectHeader();
                                });
    }

    std::size_t firstReadBytes() const { return std::min(kFirstReadBytes, buffer_.max_size() - buffer_.size()); }

    // The end of the header in the buffer, or npos; resumes where the last search stopped.
    std::size_t headerEnd() {
        const std::string_view held(static_cast<const char *>(buffer_.data().data()), buffer_.size());
        const auto end = held.find(kHeaderEnd, scanned_);
        scanned_ = held.size() < kHeaderEnd.size() ? 0 : held.size() - kHeaderEnd.size() + 1;
        return end;
    }

    // Reads until the whole header is in the buffer (or the buffer is full), so that its raw lines can be checked
    // before the parser, which would quietly join folded lines, sees them.
    void collectHeader() {
        const std::size_t end = headerEnd();
        if (end != std::string_view::npos || buffer_.size() >= buffer_.max_size()) {
            readHeader(end);
            return;
        }
        stream_.async_read_some(buffer_.prepare(firstReadBytes()),
                                [self = shared_from_this()](beast::error_code error, std::size_t bytes) {
                                    if (error) {
                                        self->close();
                                        return;
                                    }
                                    self->buffer_.commit(bytes);
                                    self->collectHeader();
                                });
    }

    void readHeader(std::size_t end) {
        if (shared_->observer != nullptr) {
            started_ = std::chrono::steady_clock::now();
            method_ = kUnknown;
            path_.assign(kUnknown);
        }
        if (end != std::string_view::npos && hasFoldedLine(end)) {
            write(errorResponse(status::kBadRequest, "folded header lines are not accepted"), false);
            return;
        }
        parser_.emplace();
        parser_->header_limit(static_cast<std::uint32_t>(limits().maxHeaderBytes));
        parser_->body_limit(limits().maxBodyBytes);
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = shared_from_this()](beast::error_code error, std::size_t) {
                                    if (error) {
                                        self->refuseRead(error);
                                        return;
                                    }
                                    self->continueToBody();
                                });
    }

    // Kept for the observer: the method, and the path without the query, which may carry what a client keeps private.
    void noteRequestLine(const http::request_parser<http::string_body>::value_type &header) {
        if (header.method() == http::verb::unknown) {
            method_ = kUnknown;
        } else {
            const auto name = http::to_string(header.method());
            method_ = std::string_view(name.data(), name.size());
        }
        const std::string_view target(header.target().data(), header.target().size());
        path_.assign(target.substr(0, target.find('?')));
    }

    // A line that starts with a space or tab continues the one before: two parsers could read it two ways.
    bool hasFoldedLine(std::size_t end) const {
        const std::string_view header(static_cast<const char *>(buffer_.data().data()), end);
        for (auto at = header.find("\r\n"); at != std::string_view::npos; at = header.find("\r\n", at + 2)) {
            if (at + 2 < header.size() && (header[at + 2] == ' ' || header[at + 2] == '\t')) {
                return true;
            }
        }
        return false;
    }

    void continueToBody() {
        const auto &header = parser_->get();
        if (shared_->observer != nullptr) {
            noteRequestLine(header);
        }
        if (auto refusal = refusalForHeader(header)) {
            write(std::move(*refusal), false, header.version());
            return;
        }
        const auto expect = header.find(http::field::expect);
        if (expect != header.end() && !beast::iequals(expect->value(), "100-continue")) {
            write(errorResponse(kExpectationFailed, "the only expectation understood is 100-continue"), false,
                  header.version());
            return;
        }
        if (expect == header.end() || parser_->is_done()) {
            readBody();
            return;
        }
        stream_.expires_after(limits().writeDeadline);
        net::async_write(stream_, net::buffer(kContinue.data(), kContinue.size()),
                         [self = shared_from_this()](beast::error_code error, std::size_t) {
                             if (error) {
                                 self->close();
                                 return;
                             }
                             self->readBody();
                         });
    }

    void readBody() {
        stream_.expires_after(limits().bodyDeadline);
        http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](beast::error_code error, std::size_t) {
            if (error) {
                self->refuseRead(error);
                return;
            }
            self->respond();
        });
    }

    void refuseRead(beast::error_code error) {
        if (error == http::error::body_limit) {
            write(errorResponse(fail(ErrorCode::PayloadTooLarge)), false);
        } else if (error == http::error::header_limit) {
            write(errorResponse(kHeaderFieldsTooLarge, "the request header is too large"), false);
        } else if (error == http::error::buffer_overflow) {
            write(errorResponse(kHeaderFieldsTooLarge, "the request's trailer is too large"), false);
        } else if (error == beast::error::timeout || error == http::error::end_of_stream || error == net::error::eof ||
                   error == net::error::connection_reset || error == net::error::operation_aborted) {
            close();
        } else {
            write(errorResponse(status::kBadRequest, "malformed request: " + error.message()), false);
        }
    }

    void respond() {
        http::request<http::string_body> request = parser_->release();
        parser_.reset();
        const bool keepAlive = request.keep_alive();
        const unsigned version = request.version();
        const bool read = request.method() == http::verb::get || request.method() == http::verb::head;
        const bool headOnly = request.method() == http::verb::head;
        ServiceRequest serviceRequest = serviceRequestOf(std::move(request), peer_);
        if (shared_->fromMemory) {
            if (auto reply = shared_->fromMemory(serviceRequest)) {
                write(std::move(*reply), keepAlive, version, headOnly);
                return;
            }
        }
        WorkerPool &pool = read ? shared_->readers : shared_->writers;
        if (!pool.enabled()) {
            write(answer(*shared_, serviceRequest), keepAlive, version, headOnly);
            return;
        }
        // The reply comes back to this connection's loop, where all of its socket work runs.
        auto job = [self = shared_from_this(), serviceRequest = std::move(serviceRequest), keepAlive, version,
                    headOnly]() mutable {
            ServiceResponse reply = answer(*self->shared_, serviceRequest);
            auto executor = self->stream_.get_executor();
            net::post(executor, [self = std::move(self), reply = std::move(reply), keepAlive, version,
                                 headOnly]() mutable { self->write(std::move(reply), keepAlive, version, headOnly); });
        };
        if (!pool.offer(std::move(job))) {
            write(busy(), keepAlive, version, headOnly);
        }
    }

    // A reply to HEAD states the length of the body a GET would get and sends none of it. The header is written
    // here rather than by a message serializer: most replies come from memory, and producing their header took
    // more time than everything else the service does for them.
    void write(ServiceResponse reply, bool keepAlive, unsigned version = kHttp11, bool headOnly = false) {
        keepAlive = keepAlive && !shared_->draining;
        replyStatus_ = reply.status;
        replyBytes_ = headOnly ? 0 : reply.body.size();
        replyVersion_ = version;
        writeHead(head_, reply, keepAlive, version);
        if (!headOnly) {
            body_ = std::move(reply.body);
        }
        const std::array<net::const_buffer, 2> buffers{net::buffer(head_), net::buffer(body_)};
        stream_.expires_after(limits().writeDeadline);
        net::async_write(stream_, buffers,
                         [self = shared_from_this(), keepAlive](beast::error_code error, std::size_t) {
                             self->releaseReply();
                             self->report();
                             ++self->answered_;
                             if (error) {
                                 self->close();
                                 return;
                             }
                             if (!keepAlive) {
                                 self->linger();
                                 return;
                             }
                             self->awaitRequest();
                         });
    }

    void report() const {
        if (shared_->observer == nullptr) {
            return;
        }
        AnsweredRequest answered;
        answered.method = method_;
        answered.path = path_;
        answered.peer = peer_;
        answered.version = replyVersion_;
        answered.status = replyStatus_;
        answered.bodyBytes = replyStatus_ == status::kNotModified ? 0 : replyBytes_;
        answered.elapsed = std::chrono::steady_clock::now() - started_;
        shared_->observer->answered(answered);
    }

    // An idle connection keeps nothing of its last reply but a header's worth of room for the next one. Moving an
    // empty string over the body would not do: a string that takes a short one keeps its old buffer.
    void releaseReply() {
        std::string().swap(body_);
        if (head_.capacity() > kKeptHeadBytes) {
            std::string().swap(head_);
        }
    }

    // After the last reply the client may still be sending a body nobody will read. Closing with unread input would
    // reset the connection and could destroy the reply before the client reads it, so the rest is read and dropped
    // for a bounded time and amount first.
    void linger() {
        beast::error_code ignored;
        stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
        buffer_.clear();
        stream_.expires_after(kLingerTime);
        drain();
    }

    void drain() {
        stream_.async_read_some(buffer_.prepare(firstReadBytes()),
                                [self = shared_from_this()](beast::error_code error, std::size_t bytes) {
                                    self->drained_ += bytes;
                                    if (error || self->drained_ > self->limits().maxBodyBytes * 2) {
                                        self->close();
                                        return;
                                    }
                                    self->drain();
                                });
    }

    void close() {
        beast::error_code ignored;
        stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
        stream_.close();
    }

    beast::tcp_stream stream_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    std::string head_;
    std::string body_;
    std::shared_ptr<Shared> shared_;
    std::size_t drained_ = 0;
    std::size_t answered_ = 0;
    std::size_t scanned_ = 0;
    std::string peer_;
    // Only touched on the connection's strand.
    bool idle_ = false;
    bool lingering_ = false;
    std::chrono::steady_clock::time_point started_;
    std::string_view method_ = kUnknown;
    std::string path_;
    int replyStatus_ = 0;
    std::size_t replyBytes_ = 0;
    unsigned replyVersion_ = kHttp11;
};

std::string refusalText() {
    const ServiceResponse reply =
        errorResponse(status::kServiceUnavailable, "too many connections; try again in a moment");
    return "HTTP/1.1 503 Service Unavailable\r\nContent-Type: application/json\r\nRetry-After: 1\r\n"
           "Connection: close\r\nContent-Length: " +
           std::to_string(reply.body.size()) + "\r\n\r\n" + reply.body;
}

// Answers a connection beyond the cap at once and closes it; the reply fits any socket buffer.
void refuse(tcp::socket socket) {
    static const std::string *const text = new std::string(refusalText());
    auto held = std::make_shared<tcp::socket>(std::move(socket));
    net::async_write(*held, net::buffer(*text), [held](beast::error_code, std::size_t) {
        beast::error_code ignored;
        held->shutdown(tcp::socket::shutdown_send, ignored);
        held->close(ignored);
    });
}

} // namespace

struct HttpFront::State {
    State(RequestHandler handler, FrontLimits limits, MemoryHandler fromMemory)
        : loops(makeLoops(limits.threads)), io(*loops.front()), acceptor(io), retry(io),
          shared(std::make_shared<Shared>(limits)) {
        shared->handler = std::move(handler);
        shared->fromMemory = std::move(fromMemory);
    }

    // One event loop per socket thread, each run by that thread alone. A connection stays on the loop it was given,
    // so its handlers never run at once and need no strand, and a loop never has to wake another thread for its
    // work: taking turns on one shared loop cost the threads more than answering from memory did.
    static std::vector<std::unique_ptr<net::io_context>> makeLoops(int threads) {
        std::vector<std::unique_ptr<net::io_context>> made;
        for (int i = 0; i < std::max(1, threads); ++i) {
            made.push_back(std::make_unique<net::io_context>(1));
        }
        return made;
    }

    // Connections go to the loops in turn; only the accepting loop's thread takes this.
    net::any_io_executor nextLoop() {
        const std::size_t chosen = accepted++ % loops.size();
        return loops[chosen]->get_executor();
    }

    void accept() {
        acceptor.async_accept(nextLoop(), [this](beast::error_code error, tcp::socket socket) {
            if (!acceptor.is_open()) {
                return;
            }
            if (error) {
                // Out of descriptors, most likely: wait a little instead of spinning on the same failure.
                retry.expires_after(kAcceptRetry);
                retry.async_wait([this](beast::error_code) { accept(); });
                return;
            }
            admit(std::move(socket));
            accept();
        });
    }

    void admit(tcp::socket socket) {
        beast::error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        if (shared->open.fetch_add(1) >= shared->limits.maxConnections) {
            --shared->open;
            ++refusedConnections;
            refuse(std::move(socket));
            return;
        }
        // Started on its own loop, where everything it does from then on runs.
        auto connection = std::make_shared<Connection>(std::move(socket), shared);
        auto executor = connection->executor();
        net::post(executor, [connection = std::move(connection)] { connection->start(); });
    }

    // Remembered by each loop: a stop before serve() makes serve() return at once.
    void stopLoops() {
        for (auto &loop : loops) {
            loop->stop();
        }
    }

    void connectionFailed(const char *what) {
        ++failedConnections;
        std::fprintf(stderr, "qvdovrin serve: closed a connection after an internal failure: %s\n", what);
    }

    std::vector<std::unique_ptr<net::io_context>> loops;
    // The first loop, run by the thread that called serve(). Accepting, retrying and the start of a drain all run
    // on it, so one at a time: the acceptor is not safe to share.
    net::io_context &io;
    std::size_t accepted = 0;
    tcp::acceptor acceptor;
    net::steady_timer retry;
    std::shared_ptr<Shared> shared;
    // Stops accepting, lets every connection finish its request under way, and ends the loops when none is left or
    // the grace runs out. Runs on the accepting loop.
    void beginDrain(std::chrono::steady_clock::time_point deadline) {
        if (shared->draining.exchange(true)) {
            return;
        }
        beast::error_code ignored;
        acceptor.close(ignored);
        retry.cancel();
        std::vector<std::shared_ptr<Connection>> idle;
        {
            const std::lock_guard<std::mutex> lock(shared->liveMutex);
            idle.reserve(shared->live.size());
            for (Connection *connection : shared->live) {
                // A connection whose last owner is going away is already past its last request.
                if (auto held = connection->weak_from_this().lock()) {
                    idle.push_back(std::move(held));
                }
            }
        }
        for (auto &connection : idle) {
            connection->postDrainIfIdle();
        }
        awaitDrained(deadline);
    }

    void awaitDrained(std::chrono::steady_clock::time_point deadline) {
        if (shared->open == 0 || std::chrono::steady_clock::now() >= deadline) {
            stopLoops();
            return;
        }
        drainTimer.expires_after(kDrainPoll);
        drainTimer.async_wait([this, deadline](beast::error_code) { awaitDrained(deadline); });
    }

    std::atomic<bool> serving{false};
    std::atomic<std::size_t> failedConnections{0};
    std::atomic<std::size_t> refusedConnections{0};
    net::steady_timer drainTimer{io};
};

HttpFront::HttpFront(VersionService &service, FrontLimits limits)
    : HttpFront([&service](const ServiceRequest &request) { return service.handle(request); }, limits,
                [&service](const ServiceRequest &request) { return service.answerFromMemory(request); }) {}

HttpFront::HttpFront(RequestHandler handler, FrontLimits limits, MemoryHandler fromMemory)
    : state_(std::make_shared<State>(std::move(handler), limits, std::move(fromMemory))) {}

HttpFront::~HttpFront() {
    stop();
}

std::optional<int> HttpFront::bind(const std::string &host, int port) {
    if (port < 0 || port > kMaxPort) {
        return std::nullopt;
    }
    beast::error_code error;
    tcp::resolver resolver(state_->io);
    const auto endpoints = resolver.resolve(host, std::to_string(port), tcp::resolver::passive, error);
    if (error || endpoints.empty()) {
        return std::nullopt;
    }
    const tcp::endpoint endpoint = endpoints.begin()->endpoint();
    auto &acceptor = state_->acceptor;
    acceptor.open(endpoint.protocol(), error);
    if (!error) {
        acceptor.set_option(net::socket_base::reuse_address(true), error);
    }
    if (!error) {
        acceptor.bind(endpoint, error);
    }
    if (!error) {
        acceptor.listen(net::socket_base::max_listen_connections, error);
    }
    if (error) {
        beast::error_code ignored;
        acceptor.close(ignored);
        return std::nullopt;
    }
    return static_cast<int>(acceptor.local_endpoint().port());
}

bool HttpFront::serve() {
    if (!state_->acceptor.is_open()) {
        return false;
    }
    state_->serving = true;
    state_->shared->readers.start();
    state_->shared->writers.start();
    state_->accept();
    auto &loops = state_->loops;
    // A loop with no connection yet must not return for want of work.
    std::vector<net::executor_work_guard<net::io_context::executor_type>> keepRunning;
    keepRunning.reserve(loops.size());
    for (auto &loop : loops) {
        keepRunning.push_back(net::make_work_guard(*loop));
    }
    std::vector<std::thread> workers;
    workers.reserve(loops.size() - 1);
    // A handler that throws unwinds only its own operation, and with it the one connection that owned it; the loop
    // goes on serving every other connection.
    const auto run = [this](net::io_context &loop) {
        while (true) {
            try {
                loop.run();
                return;
            } catch (const std::exception &failure) {
                state_->connectionFailed(failure.what());
            } catch (...) {
                state_->connectionFailed("an unknown exception");
            }
        }
    };
    for (std::size_t i = 1; i < loops.size(); ++i) {
        workers.emplace_back(run, std::ref(*loops[i]));
    }
    run(*loops.front());
    for (auto &worker : workers) {
        worker.join();
    }
    state_->shared->readers.stop();
    state_->shared->writers.stop();
    beast::error_code ignored;
    state_->acceptor.close(ignored);
    state_->serving = false;
    return true;
}

void HttpFront::stop() {
    state_->stopLoops();
}

void HttpFront::drain(std::chrono::milliseconds grace) {
    const auto deadline = std::chrono::steady_clock::now() + grace;
    net::post(state_->io, [state = state_, deadline] { state->beginDrain(deadline); });
}

void HttpFront::observe(FrontObserver &observer) {
    state_->shared->observer = &observer;
}

std::size_t HttpFront::openConnections() const {
    return state_->shared->open;
}

std::size_t HttpFront::refusedConnections() const {
    return state_->refusedConnections;
}

bool HttpFront::running() const {
    return state_->serving;
}

std::size_t HttpFront::failedConnections() const {
    return state_->failedConnections;
}

std::optional<std::pair<std::string, int>> parseListenAddress(const std::string &text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    const auto port = strictInteger(std::string_view(text).substr(colon + 1), 0, kMaxPort);
    if (!port) {
        return std::nullopt;
    }
    return std::make_pair(text.substr(0, colon), static_cast<int>(*port));
}

std::pair<std::string, std::multimap<std::string, std::string>> splitTarget(std::string_view target) {
    const auto question = target.find('?');
    std::multimap<std::string, std::string> query;
    if (question != std::string_view::npos) {
        std::string_view rest = target.substr(question + 1);
        while (!rest.empty()) {
            const auto amp = rest.find('&');
            const std::string_view item = rest.substr(0, amp);
            rest = amp == std::string_view::npos ? std::string_view() : rest.substr(amp + 1);
            if (item.empty()) {
                continue;
            }
            const auto equals = item.find('=');
            const std::string_view key = item.substr(0, equals);
            const std::string_view value =
                equals == std::string_view::npos ? std::string_view() : item.substr(equals + 1);
            query.emplace(percentDecoded(key, true), percentDecoded(value, true));
        }
    }
    return {percentDecoded(target.substr(0, question), false), std::move(query)};
}

} // namespace qv::server
