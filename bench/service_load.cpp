// Load generator for the version service: seeds a database, or drives a loopback service for a bounded count and
// time and prints requests per second and latency percentiles.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "server/sqlite_storage.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kHttpOk = 200;
constexpr double kPercentP50 = 0.50;
constexpr double kPercentP99 = 0.99;
constexpr double kMicrosPerMilli = 1000.0;
constexpr std::int64_t kFirstAppId = 100000000;
constexpr std::int64_t kFirstExternalId = 800000000;

struct Options {
    std::string mode;
    std::string db;
    int port = 0;
    int apps = 10000;
    int versions = 20;
    int connections = 4;
    double seconds = 10;
    long maxRequests = 1000000;
};

Options parse(int argc, char **argv) {
    Options options;
    options.mode = argc > 1 ? argv[1] : "";
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string key = argv[i];
        const char *value = argv[i + 1];
        if (key == "--db") {
            options.db = value;
        } else if (key == "--port") {
            options.port = std::atoi(value);
        } else if (key == "--apps") {
            options.apps = std::atoi(value);
        } else if (key == "--versions") {
            options.versions = std::atoi(value);
        } else if (key == "--connections") {
            options.connections = std::atoi(value);
        } else if (key == "--seconds") {
            options.seconds = std::atof(value);
        } else if (key == "--max-requests") {
            options.maxRequests = std::atol(value);
        }
    }
    return options;
}

// A minimal keep-alive HTTP/1.1 client: one write per request, reads until the announced body length is in, so
// the generator itself spends as few system calls as possible and leaves the cores to the service.
class LoopbackConnection {
  public:
    explicit LoopbackConnection(int port) {
        socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            ::close(socket_);
            socket_ = -1;
        }
    }
    ~LoopbackConnection() {
        if (socket_ >= 0) {
            ::close(socket_);
        }
    }
    LoopbackConnection(const LoopbackConnection &) = delete;
    LoopbackConnection &operator=(const LoopbackConnection &) = delete;

    // The reply's status, or 0 when the connection failed.
    int request(const char *method, const std::string &path, const std::string &body) {
        std::string text = std::string(method) + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
        if (!body.empty()) {
            text += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
        }
        text += "\r\n" + body;
        if (socket_ < 0 ||
            ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
            return 0;
        }
        std::size_t headerEnd = std::string::npos;
        std::size_t total = 0;
        while (true) {
            if (headerEnd == std::string::npos) {
                headerEnd = buffer_.find("\r\n\r\n");
                if (headerEnd != std::string::npos) {
                    const auto length = buffer_.find("Content-Length: ");
                    const std::size_t bodyLength = length != std::string::npos && length < headerEnd
                                                       ? std::strtoul(buffer_.c_str() + length + 16, nullptr, 10)
                                                       : 0;
                    total = headerEnd + 4 + bodyLength;
                }
            }
            if (headerEnd != std::string::npos && buffer_.size() >= total) {
                const int status = buffer_.size() > 12 ? std::atoi(buffer_.c_str() + 9) : 0;
                closing_ = buffer_.substr(0, headerEnd).find("Connection: close") != std::string::npos;
                buffer_.erase(0, total);
                return status;
            }
            char chunk[16384];
            const ssize_t got = ::recv(socket_, chunk, sizeof chunk, 0);
            if (got <= 0) {
                return 0;
            }
            buffer_.append(chunk, static_cast<std::size_t>(got));
        }
    }

    bool closing() const { return closing_; }

  private:
    int socket_ = -1;
    bool closing_ = false;
    std::string buffer_;
};

std::string reportBody(std::int64_t appId, int version) {
    const std::int64_t externalId = kFirstExternalId + appId % 1000 * 1000 + version;
    return R"({"bundle_id":"com.load.app)" + std::to_string(appId) + R"(","identifier":")" + std::to_string(appId) +
           R"(","title":"Load )" + std::to_string(appId) + R"(","versions":[{"display":"1.)" + std::to_string(version) +
           R"(","externalId":)" + std::to_string(externalId) + "}]}";
}

int seed(const Options &options) {
    qv::server::SqliteOptions storageOptions;
    storageOptions.path = options.db;
    storageOptions.readers = 1;
    const auto opened = qv::server::SqliteStorage::open(storageOptions);
    if (!opened) {
        std::fprintf(stderr, "service_load: %s\n", opened.error().describe().c_str());
        return 1;
    }
    qv::server::SqliteStorage &storage = **opened;
    const auto start = Clock::now();
    for (int app = 0; app < options.apps; ++app) {
        qv::server::VersionReport report;
        report.appId = kFirstAppId + app;
        report.bundleId = "com.load.app" + std::to_string(report.appId);
        report.title = "Load " + std::to_string(report.appId);
        for (int version = 0; version < options.versions; ++version) {
            report.versions.push_back({kFirstExternalId + version, "1." + std::to_string(version)});
        }
        if (!storage.recordReport(report)) {
            std::fprintf(stderr, "service_load: seeding failed\n");
            return 1;
        }
    }
    std::printf("seeded %d apps x %d versions in %.1f s\n", options.apps, options.versions,
                std::chrono::duration<double>(Clock::now() - start).count());
    return 0;
}

double percentile(std::vector<double> &sorted, double fraction) {
    if (sorted.empty()) {
        return 0;
    }
    const auto index = static_cast<std::size_t>(fraction * static_cast<double>(sorted.size() - 1));
    return sorted[index];
}

int drive(const Options &options, bool post) {
    std::atomic<long> issued{0};
    std::atomic<long> failures{0};
    const auto deadline = Clock::now() + std::chrono::duration<double>(options.seconds);
    std::vector<std::vector<double>> latencies(static_cast<std::size_t>(options.connections));
    std::vector<std::thread> workers;
    const auto start = Clock::now();
    for (int c = 0; c < options.connections; ++c) {
        workers.emplace_back([&, c] {
            auto connection = std::make_unique<LoopbackConnection>(options.port);
            auto &mine = latencies[static_cast<std::size_t>(c)];
            while (Clock::now() < deadline) {
                const long n = issued.fetch_add(1);
                if (n >= options.maxRequests) {
                    break;
                }
                const std::int64_t appId = kFirstAppId + n * 7919 % options.apps;
                const std::string path = "/v1/apple_apps/" + std::to_string(appId) + "/versions";
                const auto begin = Clock::now();
                const std::string body = post ? reportBody(appId, static_cast<int>(n % 50)) : std::string();
                int status = connection->request(post ? "POST" : "GET", path, body);
                if (status == 0 || connection->closing()) {
                    // The service closed the connection after its keep-alive allowance: reconnect and go on.
                    connection = std::make_unique<LoopbackConnection>(options.port);
                    if (status == 0) {
                        status = connection->request(post ? "POST" : "GET", path, body);
                    }
                }
                mine.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
                if (status != kHttpOk) {
                    failures.fetch_add(1);
                }
            }
        });
    }
    for (auto &worker : workers) {
        worker.join();
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    std::vector<double> all;
    for (const auto &mine : latencies) {
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    std::printf("%-13s %8zu requests in %5.2f s  %9.0f req/s  p50 %6.3f ms  p99 %6.3f ms  failures %ld\n",
                post ? "POST reports" : "GET versions", all.size(), elapsed, static_cast<double>(all.size()) / elapsed,
                percentile(all, kPercentP50) / kMicrosPerMilli, percentile(all, kPercentP99) / kMicrosPerMilli,
                failures.load());
    return failures.load() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    const Options options = parse(argc, argv);
    if (options.mode == "seed" && !options.db.empty()) {
        return seed(options);
    }
    if ((options.mode == "get" || options.mode == "post") && options.port > 0 && options.connections > 0) {
        return drive(options, options.mode == "post");
    }
    std::fprintf(stderr, "usage: service_load seed --db PATH [--apps N] [--versions N]\n"
                         "       service_load get|post --port PORT [--apps N] [--connections N] [--seconds S] "
                         "[--max-requests N]\n");
    return 2;
}
