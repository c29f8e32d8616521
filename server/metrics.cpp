// Request counts and latencies per route, and the exposition text an operator's scraper reads.
#include "server/metrics.h"

#include "server/operator_routes.h"
#include "server/package_source.h"
#include "server/version_service.h"

#include <cstdio>

namespace qv::server {

namespace {

constexpr double kMicrosPerSecond = 1e6;

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

void header(std::string &out, std::string_view name, std::string_view type, std::string_view help) {
    out.append("# HELP ").append(name).append(" ").append(help).append("\n");
    out.append("# TYPE ").append(name).append(" ").append(type).append("\n");
}

void sample(std::string &out, std::string_view name, std::uint64_t value) {
    out.append(name).append(" ").append(std::to_string(value)).append("\n");
}

} // namespace

Route routeOf(std::string_view path) {
    if (path.starts_with(kAppsPrefix) && path.ends_with(kVersionsSuffix)) {
        return Route::Versions;
    }
    if (path == kSearchRoute) {
        return Route::Search;
    }
    if (path == kLookupRoute) {
        return Route::Lookup;
    }
    if (path == kEventsRoute) {
        return Route::Events;
    }
    if (path == kHealthRoute) {
        return Route::Health;
    }
    if (path == kMetricsRoute) {
        return Route::Metrics;
    }
    if (path.starts_with(kPackageSourcePrefix) ||
        path == kPackageSourcePrefix.substr(0, kPackageSourcePrefix.size() - 1)) {
        return Route::Repo;
    }
    if (path == kHomeRoute || path == kSearchPageRoute || path == kStylesheetRoute ||
        path.starts_with(kAppPagePrefix)) {
        return Route::Pages;
    }
    return Route::Other;
}

std::string_view routeName(Route route) {
    switch (route) {
    case Route::Versions:
        return "versions";
    case Route::Search:
        return "search";
    case Route::Lookup:
        return "lookup";
    case Route::Events:
        return "events";
    case Route::Pages:
        return "pages";
    case Route::Repo:
        return "repo";
    case Route::Health:
        return "healthz";
    case Route::Metrics:
        return "metrics";
    case Route::Other:
    case Route::Count:
        break;
    }
    return "other";
}

void ServiceMetrics::answered(const AnsweredRequest &request) {
    record(routeOf(request.path), request.status, request.elapsed);
}

void ServiceMetrics::record(Route route, int status, std::chrono::steady_clock::duration elapsed) {
    auto &counters = routes_.at(static_cast<std::size_t>(route));
    const int statusIndex = status - kFirstStatus;
    if (statusIndex >= 0 && statusIndex < kStatuses) {
        counters.byStatus.at(static_cast<std::size_t>(statusIndex)).fetch_add(1, std::memory_order_relaxed);
    }
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
    std::size_t bucket = 0;
    while (bucket < kLatencyBoundsMicros.size() && micros > kLatencyBoundsMicros.at(bucket)) {
        ++bucket;
    }
    counters.latencyBuckets.at(bucket).fetch_add(1, std::memory_order_relaxed);
    counters.latencyMicrosSum.fetch_add(static_cast<std::uint64_t>(micros < 0 ? 0 : micros), std::memory_order_relaxed);
}

std::string ServiceMetrics::render(const MetricsSnapshot &gauges) const {
    std::string out;
    constexpr std::string_view kRequests = "qvdovrin_http_requests_total";
    header(out, kRequests, "counter", "Requests answered, by route and HTTP status.");
    for (std::size_t route = 0; route < kRoutes; ++route) {
        const auto name = routeName(static_cast<Route>(route));
        for (int index = 0; index < kStatuses; ++index) {
            const auto count = routes_.at(route).byStatus.at(static_cast<std::size_t>(index)).load();
            if (count == 0) {
                continue;
            }
            out.append(kRequests).append("{route=\"").append(name).append("\",status=\"");
            out.append(std::to_string(index + kFirstStatus)).append("\"} ").append(std::to_string(count)).append("\n");
        }
    }

    constexpr std::string_view kLatency = "qvdovrin_http_request_duration_seconds";
    header(out, kLatency, "histogram", "Time from the end of a request's header to the end of its reply.");
    for (std::size_t route = 0; route < kRoutes; ++route) {
        const auto &counters = routes_.at(route);
        const std::string label = "route=\"" + std::string(routeName(static_cast<Route>(route))) + "\"";
        std::uint64_t cumulative = 0;
        std::string buckets;
        for (std::size_t bucket = 0; bucket < counters.latencyBuckets.size(); ++bucket) {
            cumulative += counters.latencyBuckets.at(bucket).load();
            const std::string bound =
                bucket < kLatencyBoundsMicros.size()
                    ? seconds(static_cast<double>(kLatencyBoundsMicros.at(bucket)) / kMicrosPerSecond)
                    : "+Inf";
            buckets.append(kLatency).append("_bucket{").append(label).append(",le=\"").append(bound).append("\"} ");
            buckets.append(std::to_string(cumulative)).append("\n");
        }
        if (cumulative == 0) {
            continue;
        }
        out.append(buckets);
        out.append(kLatency).append("_sum{").append(label).append("} ");
        out.append(seconds(static_cast<double>(counters.latencyMicrosSum.load()) / kMicrosPerSecond)).append("\n");
        out.append(kLatency).append("_count{").append(label).append("} ").append(std::to_string(cumulative));
        out.append("\n");
    }

    header(out, "qvdovrin_open_connections", "gauge", "Client connections open now.");
    sample(out, "qvdovrin_open_connections", gauges.openConnections);
    header(out, "qvdovrin_refused_connections_total", "counter",
           "Connections answered 503 and closed because the service held its maximum.");
    sample(out, "qvdovrin_refused_connections_total", gauges.refusedConnections);
    header(out, "qvdovrin_database_errors_total", "counter", "Database calls that failed.");
    sample(out, "qvdovrin_database_errors_total", gauges.databaseErrors);
    header(out, "qvdovrin_reply_cache_bytes", "gauge", "Memory held by cached versions lists.");
    sample(out, "qvdovrin_reply_cache_bytes", gauges.replyCacheBytes);
    header(out, "qvdovrin_reply_cache_hits_total", "counter", "Versions lists answered from the reply cache.");
    sample(out, "qvdovrin_reply_cache_hits_total", gauges.replyCacheHits);
    return out;
}

} // namespace qv::server
