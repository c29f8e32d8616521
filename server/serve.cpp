// The service's serve loop: storage, HTTP front and a signal thread that drains the front on SIGINT or SIGTERM.
#include "server/serve.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "server/access_log.h"
#include "server/http_front.h"
#include "server/metrics.h"
#include "server/operator_routes.h"
#include "server/package_source.h"
#include "server/postgres_storage.h"
#include "server/sqlite_storage.h"

namespace qv::server {

namespace {

// How often the signal thread repeats its stop request: a stop that arrives before the front has started
// listening is not remembered by it.
constexpr std::chrono::milliseconds kStopRetry{10};

// Blocks SIGINT, SIGTERM and SIGHUP in the calling thread (and so in every thread it starts) for its lifetime, so
// that only sigwait sees them.
class BlockedStopSignals {
  public:
    BlockedStopSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
    }
    ~BlockedStopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    BlockedStopSignals(const BlockedStopSignals &) = delete;
    BlockedStopSignals &operator=(const BlockedStopSignals &) = delete;

    int wait() const {
        int received = 0;
        sigwait(&signals_, &received);
        return received;
    }

  private:
    sigset_t signals_{};
    sigset_t previous_{};
};

// Every open connection holds a descriptor; the usual soft limit of 1024 would cap the front far below its own cap.
std::size_t raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    if (limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
        ::getrlimit(RLIMIT_NOFILE, &limit);
    }
    return static_cast<std::size_t>(limit.rlim_cur);
}

// Metrics and the access log both hear of every request.
class ObserverPair : public FrontObserver {
  public:
    ObserverPair(FrontObserver &first, FrontObserver *second) : first_(first), second_(second) {}
    void answered(const AnsweredRequest &request) override {
        first_.answered(request);
        if (second_ != nullptr) {
            second_->answered(request);
        }
    }

  private:
    FrontObserver &first_;
    FrontObserver *second_;
};

// Descriptors kept back from connections: the database, its journal, the listening socket and the standard streams.
constexpr std::size_t kReservedDescriptors = 64;

Result<std::unique_ptr<VersionStorage>> openStorage(const ServeConfig &config) {
    StorageLimits limits;
    limits.maxSearchEvents = config.maxSearchEvents;
    limits.maxSearchEventBytes = config.maxSearchEventBytes;
    limits.maxVersionsPerApp = config.maxVersionsPerApp;
    limits.maxVersionBytes = config.maxVersionBytes;
    if (isPostgresUrl(config.database)) {
        PostgresOptions options;
        static_cast<StorageLimits &>(options) = limits;
        options.url = config.database;
        auto storage = PostgresStorage::open(options);
        if (!storage) {
            return storage.error();
        }
        return std::unique_ptr<VersionStorage>(std::move(*storage));
    }
    const std::filesystem::path databasePath(config.database);
    if (databasePath.has_parent_path()) {
        // A folder that cannot be made shows up as the database's own open failure below.
        std::error_code ignored;
        std::filesystem::create_directories(databasePath.parent_path(), ignored);
    }
    SqliteOptions options;
    static_cast<StorageLimits &>(options) = limits;
    options.path = config.database;
    auto storage = SqliteStorage::open(options);
    if (!storage) {
        return storage.error();
    }
    return std::unique_ptr<VersionStorage>(std::move(*storage));
}

// An exclusive lock on the SQLite file for the process's life: a second service on the same file would keep a
// reply cache that never hears of the first one's writes. The lock is advisory and SQLite's own locks are of
// another kind, so backups and other readers are not affected.
class SingleServiceLock {
  public:
    static Result<SingleServiceLock> take(const std::string &path) {
        SingleServiceLock lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kNewFileMode));
        if (lock.descriptor_ < 0 && errno == EACCES) {
            // A file the service may not write is the database's own refusal to tell; it can still be locked.
            lock.descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        }
        if (lock.descriptor_ < 0) {
            return fail(ErrorCode::StorageFailed, path + ": " + std::strerror(errno));
        }
        if (::flock(lock.descriptor_, LOCK_EX | LOCK_NB) != 0) {
            return fail(ErrorCode::StorageFailed,
                        path + " is in use by another qvdovrin serve; several instances need PostgreSQL");
        }
        return lock;
    }
    SingleServiceLock(SingleServiceLock &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    SingleServiceLock &operator=(SingleServiceLock &&) = delete;
    SingleServiceLock(const SingleServiceLock &) = delete;
    SingleServiceLock &operator=(const SingleServiceLock &) = delete;
    ~SingleServiceLock() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

  private:
    static constexpr mode_t kNewFileMode = 0644;
    explicit SingleServiceLock(int descriptor) : descriptor_(descriptor) {}
    int descriptor_;
};

} // namespace

ServiceLimits serviceLimitsFor(const ServeConfig &config) {
    ServiceLimits limits;
    limits.maxVersionsPerReport = config.maxVersionsPerReport;
    limits.replyCacheBytes = isPostgresUrl(config.database) ? 0 : config.replyCacheBytes;
    limits.writesPerMinute = config.writesPerMinute;
    limits.clientAddressHeader = config.clientAddressHeader;
    std::transform(limits.clientAddressHeader.begin(), limits.clientAddressHeader.end(),
                   limits.clientAddressHeader.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return limits;
}

int hardwareThreads() {
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

Result<void> serveUntilSignalled(const ServeConfig &config, const std::function<void(int port)> &onListening) {
    // Before any thread starts (the access log's among them): a thread that does not block them would take the
    // signals' default action, which ends the process without draining.
    const BlockedStopSignals stopSignals;
    std::optional<SingleServiceLock> fileLock;
    if (!isPostgresUrl(config.database)) {
        const std::filesystem::path databasePath(config.database);
        if (databasePath.has_parent_path()) {
            // A folder that cannot be made shows up as the lock's or the database's own open failure below.
            std::error_code ignored;
            std::filesystem::create_directories(databasePath.parent_path(), ignored);
        }
        auto taken = SingleServiceLock::take(config.database);
        if (!taken) {
            return fail(ErrorCode::StorageFailed, "cannot open the database: " + taken.error().describe());
        }
        fileLock.emplace(std::move(*taken));
    }
    auto storage = openStorage(config);
    if (!storage) {
        return fail(ErrorCode::StorageFailed, "cannot open the database: " + storage.error().describe());
    }
    std::optional<PackageSource> packages;
    if (!config.packageSource.empty()) {
        auto opened = PackageSource::open(config.packageSource);
        if (!opened) {
            return opened.error();
        }
        packages.emplace(std::move(*opened));
    }
    std::unique_ptr<AccessLog> accessLog;
    if (!config.accessLog.empty()) {
        auto opened = AccessLog::open(config.accessLog);
        if (!opened) {
            return opened.error();
        }
        accessLog = std::move(*opened);
    }
    VersionService service(**storage, serviceLimitsFor(config));
    FrontLimits limits;
    limits.threads = config.threads > 0 ? config.threads : hardwareThreads();
    const std::size_t descriptors = raiseDescriptorLimit();
    if (descriptors > kReservedDescriptors) {
        limits.maxConnections = std::min(limits.maxConnections, descriptors - kReservedDescriptors);
    }
    ServiceMetrics metrics;
    const HttpFront *frontOfMetrics = nullptr;
    const OperatorRoutes operatorRoutes(
        **storage, service, metrics,
        [&frontOfMetrics] {
            MetricsSnapshot gauges;
            gauges.openConnections = frontOfMetrics->openConnections();
            gauges.refusedConnections = frontOfMetrics->refusedConnections();
            return gauges;
        },
        packages ? &*packages : nullptr);
    HttpFront front(
        [&](const ServiceRequest &request) {
            if (auto reply = operatorRoutes.answer(request)) {
                return std::move(*reply);
            }
            return service.handle(request);
        },
        limits, [&service](const ServiceRequest &request) { return service.answerFromMemory(request); });
    frontOfMetrics = &front;
    ObserverPair observers(metrics, accessLog.get());
    front.observe(observers);
    const auto port = front.bind(config.host, config.port);
    if (!port) {
        return fail(ErrorCode::ListenFailed, "cannot listen on " + config.host + ":" + std::to_string(config.port));
    }

    std::atomic<bool> finished{false};
    // SIGHUP opens the access log again (after a rotation renamed it) and is otherwise ignored.
    const auto waitForStop = [&] {
        while (stopSignals.wait() == SIGHUP && !finished) {
            if (accessLog) {
                if (auto reopened = accessLog->reopen(); !reopened) {
                    std::fprintf(stderr, "qvdovrin serve: %s; still writing to the old file\n",
                                 reopened.error().describe().c_str());
                }
            }
        }
    };
    std::thread stopper([&] {
        waitForStop();
        if (finished) {
            return;
        }
        front.drain(kShutdownGrace);
        // A second signal stops at once; the front ending on its own wakes this wait too.
        waitForStop();
        while (!finished) {
            front.stop();
            std::this_thread::sleep_for(kStopRetry);
        }
    });
    onListening(*port);
    const bool served = front.serve();
    finished = true;
    // Wakes the signal thread when the front ended on its own.
    pthread_kill(stopper.native_handle(), SIGINT);
    stopper.join();
    if (!served) {
        return fail(ErrorCode::ServerFailed);
    }
    return {};
}

} // namespace qv::server
