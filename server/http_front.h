// The version service on a socket: an event-driven HTTP/1.1 front that slow or idle clients cannot starve.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "server/version_service.h"

namespace qv::server {

// What one connection may cost the service, and how many may be open at once.
struct FrontLimits {
    std::size_t maxConnections = 4096;
    // From a request's first byte until its header is complete.
    std::chrono::milliseconds headerDeadline{std::chrono::seconds(10)};
    // From the end of the header until the body is complete.
    std::chrono::milliseconds bodyDeadline{std::chrono::seconds(30)};
    // A kept-alive connection with no request under way.
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(60)};
    std::chrono::milliseconds writeDeadline{std::chrono::seconds(30)};
    std::size_t maxHeaderBytes = std::size_t{16} * 1024;
    std::size_t maxBodyBytes = kMaxBodyBytes;
    // Socket threads, each running an event loop of its own: they read and write sockets and never wait for the
    // database.
    int threads = 4;
    // Threads that run the handler for reads (GET, HEAD) and for everything else, each fed by its own queue, so
    // that reads never wait behind writes. With 0 the handler runs on the socket threads.
    int readWorkers = 4;
    int writeWorkers = 2;
    // Requests waiting for a worker of one kind; the next one is answered 503 at once.
    std::size_t maxQueuedRequests = 256;
};

// One request as the front answered it, for metrics and the access log; the views live only during the call.
struct AnsweredRequest {
    std::string_view method; // "-" when the request line could not be read
    std::string_view path;   // the target as sent, without its query; "-" likewise
    std::string_view peer;
    unsigned version = 11; // NOLINT(readability-magic-numbers): HTTP/1.1
    int status = 0;
    std::size_t bodyBytes = 0; // body bytes sent: none for HEAD and 304
    // From the end of the request's header until its reply was written.
    std::chrono::steady_clock::duration elapsed{};
};

// Told of every answered request, on the socket threads; it must not block.
class FrontObserver {
  public:
    FrontObserver() = default;
    FrontObserver(const FrontObserver &) = delete;
    FrontObserver &operator=(const FrontObserver &) = delete;
    virtual ~FrontObserver() = default;
    virtual void answered(const AnsweredRequest &request) = 0;
};

using RequestHandler = std::function<ServiceResponse(const ServiceRequest &)>;
// Answers a request from memory without waiting for anything, or declines it; runs on the socket threads.
using MemoryHandler = std::function<std::optional<ServiceResponse>(const ServiceRequest &)>;

class HttpFront {
  public:
    explicit HttpFront(VersionService &service, FrontLimits limits = {});
    // Any handler: the benchmarks put a constant reply behind the same front to measure the front alone.
    explicit HttpFront(RequestHandler handler, FrontLimits limits = {}, MemoryHandler fromMemory = {});
    ~HttpFront();
    HttpFront(const HttpFront &) = delete;
    HttpFront &operator=(const HttpFront &) = delete;

    // Binds the address (port 0 picks a free port); the bound port, or nothing when binding failed.
    std::optional<int> bind(const std::string &host, int port);
    // Serves until stop() is called, also when stop() came first; false when the server could not run. A failure
    // inside one connection closes that connection only.
    bool serve();
    // Stops at once: connections are dropped, replies under way included.
    void stop();
    // Stops gracefully: no new connections; idle kept-alive connections are closed, requests under way are answered
    // (each with "Connection: close"), then serve() returns; after `grace` whatever is left is dropped as by stop().
    // Safe from any thread, also before serve().
    void drain(std::chrono::milliseconds grace);
    bool running() const;
    // Reports every answered request to the observer, which must outlive serving; call before serve().
    void observe(FrontObserver &observer);
    std::size_t openConnections() const;
    // Connections answered 503 and closed because the front already held its maximum.
    std::size_t refusedConnections() const;
    // Connections closed because something threw while serving them; each is also logged on stderr.
    std::size_t failedConnections() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

// "HOST:PORT" split; nothing when the text has no port or the port is not 0-65535.
std::optional<std::pair<std::string, int>> parseListenAddress(const std::string &text);

// The request target split into a decoded path and decoded query items ("+" is a space in the query only);
// a broken percent escape stays as written.
std::pair<std::string, std::multimap<std::string, std::string>> splitTarget(std::string_view target);

} // namespace qv::server
