// Load generator for the version service: seeds a database, or drives a loopback service for a bounded count and
// time and prints requests per second and latency percentiles.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "server/http_front.h"
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
    int idle = 0;           // connections opened and left silent during the phase
    int slow = 0;           // clients that send one header byte every few seconds during the phase
    int pid = 0;            // the service's process, whose memory the bomb and idle-memory phases read
    int posters = 0;        // clients posting large reports throughout a GET phase
    int reportVersions = 0; // versions in each of their reports
    int clients = 300;      // idle-memory: clients that read the large list and then sit idle
};

// A count or port from the command line; a typo stops the run rather than measuring with 0.
int wholeOption(const std::string &key, const char *value) {
    const auto number = qv::strictInteger(value, 0, std::numeric_limits<int>::max());
    if (!number) {
        std::fprintf(stderr, "service_load: %s: %s\n", key.c_str(), number.error().describe().c_str());
        std::exit(2);
    }
    return static_cast<int>(*number);
}

Options parse(int argc, char **argv) {
    Options options;
    options.mode = argc > 1 ? argv[1] : "";
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string key = argv[i];
        const char *value = argv[i + 1];
        if (key == "--db") {
            options.db = value;
        } else if (key == "--port") {
            options.port = wholeOption(key, value);
        } else if (key == "--apps") {
            options.apps = wholeOption(key, value);
        } else if (key == "--versions") {
            options.versions = wholeOption(key, value);
        } else if (key == "--connections") {
            options.connections = wholeOption(key, value);
        } else if (key == "--seconds") {
            options.seconds = std::atof(value);
        } else if (key == "--max-requests") {
            options.maxRequests = wholeOption(key, value);
        } else if (key == "--idle") {
            options.idle = wholeOption(key, value);
        } else if (key == "--slow") {
            options.slow = wholeOption(key, value);
        } else if (key == "--pid") {
            options.pid = wholeOption(key, value);
        } else if (key == "--posters") {
            options.posters = wholeOption(key, value);
        } else if (key == "--report-versions") {
            options.reportVersions = wholeOption(key, value);
        } else if (key == "--clients") {
            options.clients = wholeOption(key, value);
        }
    }
    return options;
}

// A connected loopback socket, or -1.
int connectLoopback(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        ::close(socket);
        return -1;
    }
    return socket;
}

// A minimal keep-alive HTTP/1.1 client: one write per request, reads until the announced body length is in, so
// the generator itself spends as few system calls as possible and leaves the cores to the service.
class LoopbackConnection {
  public:
    explicit LoopbackConnection(int port) : socket_(connectLoopback(port)) {
        if (socket_ >= 0) {
            const int on = 1;
            ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
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
                lastBodyBytes_ = total - headerEnd - 4;
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
    std::size_t lastBodyBytes() const { return lastBodyBytes_; }

  private:
    int socket_ = -1;
    std::size_t lastBodyBytes_ = 0;
    bool closing_ = false;
    std::string buffer_;
};

std::string reportBody(std::int64_t appId, int version) {
    const std::int64_t externalId = kFirstExternalId + appId % 1000 * 1000 + version;
    return R"({"bundle_id":"com.load.app)" + std::to_string(appId) + R"(","identifier":")" + std::to_string(appId) +
           R"(","title":"Load )" + std::to_string(appId) + R"(","versions":[{"display":"1.)" + std::to_string(version) +
           R"(","externalId":)" + std::to_string(externalId) + "}]}";
}

// A report of `count` versions numbered from `firstVersion`, each with a display text of `displayLength` characters.
std::string largeReportBody(std::int64_t appId, int firstVersion, int count, std::size_t displayLength) {
    std::string body = R"({"bundle_id":"com.load.large)" + std::to_string(appId) + R"(","identifier":")" +
                       std::to_string(appId) + R"(","title":"Large","versions":[)";
    for (int i = 0; i < count; ++i) {
        std::string display = "1." + std::to_string(firstVersion + i) + ".";
        display.resize(std::max(displayLength, display.size()), '0');
        body += std::string(i == 0 ? "" : ",") + R"({"display":")" + display + R"(","externalId":)" +
                std::to_string(kFirstExternalId + firstVersion + i) + "}";
    }
    return body + "]}";
}

// Clients that post large reports, one after another, to apps of their own for as long as they live.
class Posters {
  public:
    Posters(int port, int count, int versions, std::int64_t firstAppId) {
        for (int i = 0; i < count; ++i) {
            threads_.emplace_back([this, port, versions, appId = firstAppId + i] {
                const std::string body = largeReportBody(appId, 0, versions, 8);
                const std::string path = "/v1/apple_apps/" + std::to_string(appId) + "/versions";
                auto connection = std::make_unique<LoopbackConnection>(port);
                while (!stopping_) {
                    const int status = connection->request("POST", path, body);
                    if (status == 0 || connection->closing()) {
                        connection = std::make_unique<LoopbackConnection>(port);
                    }
                    if (status == kHttpOk) {
                        ++posted_;
                    }
                }
            });
        }
    }
    ~Posters() {
        stopping_ = true;
        for (auto &thread : threads_) {
            thread.join();
        }
    }
    Posters(const Posters &) = delete;
    Posters &operator=(const Posters &) = delete;

    long posted() const { return posted_; }

  private:
    std::vector<std::thread> threads_;
    std::atomic<bool> stopping_{false};
    std::atomic<long> posted_{0};
};

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

// Idle connections and slow-header clients held open against the service while a phase runs.
class Crowd {
  public:
    Crowd(int port, int idle, int slow) : port_(port) {
        for (int i = 0; i < idle; ++i) {
            const int socket = connectLoopback(port);
            if (socket >= 0) {
                idle_.push_back(socket);
            }
        }
        for (int i = 0; i < slow; ++i) {
            slow_.emplace_back([this] { trickle(); });
        }
    }
    ~Crowd() {
        stopping_ = true;
        for (auto &thread : slow_) {
            thread.join();
        }
        for (const int socket : idle_) {
            ::close(socket);
        }
    }
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;

    std::size_t idleHeld() const { return idle_.size(); }

  private:
    static constexpr std::chrono::seconds kByteInterval{3};
    static constexpr std::chrono::milliseconds kPoll{50};

    // One byte of a never-ending header every interval; when the service cuts the connection, a new one.
    void trickle() {
        const std::string header = "GET /v1/apple_apps/1/versions HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: ";
        while (!stopping_) {
            const int socket = connectLoopback(port_);
            if (socket < 0) {
                std::this_thread::sleep_for(kPoll);
                continue;
            }
            for (std::size_t sent = 0; !stopping_; ++sent) {
                const char byte = sent < header.size() ? header[sent] : 'x';
                if (::send(socket, &byte, 1, MSG_NOSIGNAL) != 1) {
                    break;
                }
                for (auto waited = std::chrono::milliseconds(0); waited < kByteInterval && !stopping_;
                     waited += kPoll) {
                    std::this_thread::sleep_for(kPoll);
                }
            }
            ::close(socket);
        }
    }

    int port_;
    std::vector<int> idle_;
    std::vector<std::thread> slow_;
    std::atomic<bool> stopping_{false};
};

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// A gzip stream of `inflated` zero bytes: about a thousandth of that on the wire.
std::string gzipOfZeros(std::size_t inflated) {
    z_stream stream{};
    constexpr int kGzipWindowBits = 15 + 16;
    constexpr int kMemoryLevel = 9;
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindowBits, kMemoryLevel, Z_DEFAULT_STRATEGY);
    const std::vector<unsigned char> zeros(std::size_t{1} << 20, 0);
    std::string out;
    std::vector<unsigned char> chunk(std::size_t{1} << 16);
    for (std::size_t fed = 0; fed < inflated;) {
        const std::size_t piece = std::min(zeros.size(), inflated - fed);
        fed += piece;
        stream.next_in = const_cast<unsigned char *>(zeros.data()); // NOLINT: zlib's input is not const
        stream.avail_in = static_cast<uInt>(piece);
        const int flush = fed == inflated ? Z_FINISH : Z_NO_FLUSH;
        do {
            stream.next_out = chunk.data();
            stream.avail_out = static_cast<uInt>(chunk.size());
            deflate(&stream, flush);
            out.append(reinterpret_cast<const char *>(chunk.data()), chunk.size() - stream.avail_out);
        } while (stream.avail_out == 0);
    }
    deflateEnd(&stream);
    return out;
}

// A field of /proc/PID/status in MiB ("VmRSS", "VmHWM").
double serviceMemoryMiB(int pid, const std::string &field) {
    std::FILE *status = std::fopen(("/proc/" + std::to_string(pid) + "/status").c_str(), "r");
    if (status == nullptr) {
        return 0;
    }
    char line[256];
    double kib = 0;
    while (std::fgets(line, sizeof line, status) != nullptr) {
        if (std::string(line).rfind(field + ":", 0) == 0) {
            kib = std::atof(line + field.size() + 1);
        }
    }
    std::fclose(status);
    constexpr double kKibPerMib = 1024.0;
    return kib / kKibPerMib;
}

// Sends a compression bomb, declared as gzip and undeclared, and reports what each cost the service.
int bomb(const Options &options) {
    constexpr std::size_t kInflated = std::size_t{1} << 30;
    const std::string body = gzipOfZeros(kInflated);
    constexpr double kBytesPerMib = 1024.0 * 1024.0;
    int status = 0;
    for (const bool declared : {true, false}) {
        const double before = serviceMemoryMiB(options.pid, "VmRSS");
        const int socket = connectLoopback(options.port);
        const std::string head = std::string("POST /v1/apple_apps/1/versions HTTP/1.1\r\nHost: 127.0.0.1\r\n") +
                                 (declared ? "Content-Encoding: gzip\r\n" : "") +
                                 "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                                 "\r\n\r\n";
        const auto begin = Clock::now();
        ::send(socket, head.data(), head.size(), MSG_NOSIGNAL);
        // The service may answer before the body is in; what it does not read is its own business.
        std::thread sender([&] { ::send(socket, body.data(), body.size(), MSG_NOSIGNAL); });
        char reply[512] = {};
        const ssize_t got = ::recv(socket, reply, sizeof reply - 1, 0);
        const double millis = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        ::shutdown(socket, SHUT_RDWR);
        sender.join();
        ::close(socket);
        const int replyStatus = got > 12 ? std::atoi(reply + 9) : 0;
        const double after = serviceMemoryMiB(options.pid, "VmRSS");
        std::printf("compression bomb %-10s %.2f MiB gzip of %.0f MiB: status %d in %7.2f ms, service memory %+.1f "
                    "MiB (peak %.1f MiB)\n",
                    declared ? "(gzip)" : "(as JSON)", static_cast<double>(body.size()) / kBytesPerMib,
                    static_cast<double>(kInflated) / kBytesPerMib, replyStatus, millis, after - before,
                    serviceMemoryMiB(options.pid, "VmHWM"));
        if (replyStatus < 400 || replyStatus >= 500) {
            status = 1;
        }
    }
    return status;
}

// The same front with a constant reply and no storage: the ceiling the service's own figures are measured against.
int serveConstant(const Options &options) {
    qv::server::FrontLimits limits;
    limits.threads = options.connections;
    const std::string body = R"({"versions":[]})";
    qv::server::HttpFront front(
        [&body](const qv::server::ServiceRequest &) {
            return qv::server::ServiceResponse{kHttpOk, body, {}};
        },
        limits);
    const auto port = front.bind("127.0.0.1", options.port);
    if (!port) {
        std::fprintf(stderr, "service_load: cannot listen\n");
        return 1;
    }
    std::printf("serving on http://127.0.0.1:%d/\n", *port);
    std::fflush(stdout);
    return front.serve() ? 0 : 1;
}

// Fills one app with a versions list of about 1.5 MB, lets `clients` connections read it and sit idle, and says how
// much more memory the service holds while they do.
int idleMemory(const Options &options) {
    constexpr std::int64_t kLargeApp = 7;
    constexpr int kReports = 3;
    constexpr int kVersionsPerReport = 1666;
    constexpr std::size_t kDisplayLength = 256;
    const std::string path = "/v1/apple_apps/" + std::to_string(kLargeApp) + "/versions";
    {
        LoopbackConnection filler(options.port);
        for (int report = 0; report < kReports; ++report) {
            const std::string body =
                largeReportBody(kLargeApp, report * kVersionsPerReport, kVersionsPerReport, kDisplayLength);
            if (filler.request("POST", path, body) != kHttpOk) {
                std::fprintf(stderr, "service_load: the large list could not be stored\n");
                return 1;
            }
        }
        filler.request("GET", path, ""); // the list is answered once before anyone is measured
    }
    const double before = serviceMemoryMiB(options.pid, "VmRSS");
    std::vector<std::unique_ptr<LoopbackConnection>> idle;
    idle.reserve(static_cast<std::size_t>(std::max(options.clients, 0)));
    std::size_t replyBytes = 0;
    for (int i = 0; i < options.clients; ++i) {
        idle.push_back(std::make_unique<LoopbackConnection>(options.port));
        if (idle.back()->request("GET", path, "") != kHttpOk) {
            std::fprintf(stderr, "service_load: a client could not read the large list\n");
            return 1;
        }
        replyBytes = idle.back()->lastBodyBytes();
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double after = serviceMemoryMiB(options.pid, "VmRSS");
    constexpr double kBytesPerMib = 1024.0 * 1024.0;
    std::printf("memory held by %d idle clients after a %.2f MiB reply: %+.1f MiB (goal: under 50 MB)\n",
                options.clients, static_cast<double>(replyBytes) / kBytesPerMib, after - before);
    return 0;
}

int drive(const Options &options, bool post) {
    const Crowd crowd(options.port, options.idle, options.slow);
    const std::unique_ptr<Posters> posters =
        options.posters > 0 ? std::make_unique<Posters>(options.port, options.posters, options.reportVersions,
                                                        kFirstAppId + options.apps)
                            : nullptr;
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
    if (options.idle > 0 || options.slow > 0) {
        std::printf("with %zu idle connections and %d slow-header clients held open:\n", crowd.idleHeld(),
                    options.slow);
    }
    if (posters) {
        std::printf("while %d clients post %d-version reports (%ld accepted):\n", options.posters,
                    options.reportVersions, posters->posted());
    }
    std::printf("%-13s %8zu requests in %5.2f s  %9.0f req/s  p50 %6.3f ms  p99 %6.3f ms  failures %ld\n",
                post ? "POST reports" : "GET versions", all.size(), elapsed, static_cast<double>(all.size()) / elapsed,
                percentile(all, kPercentP50) / kMicrosPerMilli, percentile(all, kPercentP99) / kMicrosPerMilli,
                failures.load());
    return failures.load() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    raiseDescriptorLimit();
    const Options options = parse(argc, argv);
    if (options.mode == "constant") {
        return serveConstant(options);
    }
    if (options.mode == "bomb" && options.port > 0) {
        return bomb(options);
    }
    if (options.mode == "idle-memory" && options.port > 0) {
        return idleMemory(options);
    }
    if (options.mode == "seed" && !options.db.empty()) {
        return seed(options);
    }
    if ((options.mode == "get" || options.mode == "post") && options.port > 0 && options.connections > 0) {
        return drive(options, options.mode == "post");
    }
    std::fprintf(stderr, "usage: service_load seed --db PATH [--apps N] [--versions N]\n"
                         "       service_load get|post --port PORT [--apps N] [--connections N] [--seconds S] "
                         "[--max-requests N] [--idle N] [--slow N] [--posters N --report-versions N]\n"
                         "       service_load idle-memory --port PORT --pid SERVICE_PID [--clients N]\n"
                         "       service_load bomb --port PORT [--pid SERVICE_PID]\n"
                         "       service_load constant [--port PORT] [--connections THREADS]\n");
    return 2;
}
