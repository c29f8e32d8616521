// What the service counts for its operator, kept in atomics on the request path and written out in the Prometheus
// text format.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "server/http_front.h"

namespace qv::server {

// The routes requests are counted under: a fixed set, so that no client can make the metrics grow.
enum class Route : std::uint8_t { Versions, Search, Lookup, Events, Pages, Repo, Health, Metrics, Other, Count };

// The route a request path belongs to.
Route routeOf(std::string_view path);
std::string_view routeName(Route route);

// Gauges read when the metrics are written, not counted on the way.
struct MetricsSnapshot {
    std::size_t openConnections = 0;
    std::size_t refusedConnections = 0;
    std::uint64_t databaseErrors = 0;
    std::size_t replyCacheBytes = 0;
    std::uint64_t replyCacheHits = 0;
};

class ServiceMetrics : public FrontObserver {
  public:
    // Upper bounds of the latency buckets, in microseconds; the last bucket has no bound.
    static constexpr std::array<std::int64_t, 14> kLatencyBoundsMicros{
        100, 250, 500, 1000, 2500, 5000, 10000, 25000, 50000, 100000, 250000, 1000000, 2500000, 10000000};

    void answered(const AnsweredRequest &request) override;
    void record(Route route, int status, std::chrono::steady_clock::duration elapsed);

    // Every metric in the Prometheus text exposition format, with the gauges given.
    std::string render(const MetricsSnapshot &gauges) const;

  private:
    static constexpr int kFirstStatus = 100;
    static constexpr int kStatuses = 500; // 100-599
    static constexpr std::size_t kRoutes = static_cast<std::size_t>(Route::Count);

    struct RouteCounters {
        std::array<std::atomic<std::uint64_t>, kStatuses> byStatus{};
        std::array<std::atomic<std::uint64_t>, kLatencyBoundsMicros.size() + 1> latencyBuckets{};
        std::atomic<std::uint64_t> latencyMicrosSum{0};
    };
    std::array<RouteCounters, kRoutes> routes_{};
};

} // namespace qv::server
