// The version service as a process: open the database, listen, serve until SIGINT or SIGTERM, stop cleanly.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "base/result.h"
#include "server/storage.h"
#include "server/version_service.h"

namespace qv::server {

struct ServeConfig {
    std::string host = "127.0.0.1";
    int port = 0; // 0: any free port
    // A postgresql:// (or postgres://) URL, or else the SQLite file, which is created with its folder on first start.
    std::string database;
    std::int64_t maxSearchEvents = StorageLimits::kDefaultMaxSearchEvents;
    std::int64_t maxSearchEventBytes = StorageLimits::kDefaultMaxSearchEventBytes;
    std::int64_t maxVersionsPerApp = StorageLimits::kDefaultMaxVersionsPerApp;
    std::size_t maxVersionsPerReport = kDefaultMaxVersionsPerReport;
    std::size_t replyCacheBytes = kDefaultReplyCacheBytes;
    std::int64_t maxVersionBytes = StorageLimits::kDefaultMaxVersionBytes;
    std::size_t writesPerMinute = ServiceLimits::kDefaultWritesPerMinute;
    // Trusted only when set: the header a proxy in front puts the client's address in.
    std::string clientAddressHeader;
    // Where the access log goes: a file, "-" for standard output, or empty for none.
    std::string accessLog;
    // A folder served under /repo/ (the package source), or empty.
    std::string packageSource;
    // Threads that read, answer and write requests; 0 for one per hardware thread of the machine.
    int threads = 0;
};

// How long requests under way may take to finish after SIGTERM or SIGINT; a second signal stops at once.
inline constexpr std::chrono::seconds kShutdownGrace{10};

// One per hardware thread, or 1 where the machine does not say.
int hardwareThreads();

// The service's limits for the configuration. A shared PostgreSQL database gets no reply cache: another instance
// may accept a report this one would never hear about.
ServiceLimits serviceLimitsFor(const ServeConfig &config);

// Serves until SIGINT or SIGTERM arrives, then stops accepting, finishes the requests under way (for at most
// kShutdownGrace) and returns. onListening runs once, with the bound port, before the first request is accepted.
// Fails with StorageFailed (the database cannot be opened or written), FileUnreadable (the package source),
// FileUnwritable (the access log), ListenFailed or ServerFailed. SIGINT, SIGTERM and SIGHUP stay blocked in the
// calling thread while it serves; SIGHUP opens the access log again.
Result<void> serveUntilSignalled(const ServeConfig &config, const std::function<void(int port)> &onListening);

} // namespace qv::server
