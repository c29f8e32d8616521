// Health check and metrics replies, and the hand-over of /repo/ to the package source.
#include "server/operator_routes.h"

#include <string>

namespace qv::server {

namespace {

constexpr std::string_view kHealthy = "{\"status\":\"ok\"}";

ServiceResponse readOnly() {
    return methodNotAllowed("GET, HEAD", "GET");
}

bool isRead(const ServiceRequest &request) {
    return request.method == "GET" || request.method == "HEAD";
}

} // namespace

std::optional<ServiceResponse> OperatorRoutes::answer(const ServiceRequest &request) const {
    if (request.path == kHealthRoute) {
        return health(request);
    }
    if (request.path == kMetricsRoute) {
        return metrics(request);
    }
    if (packages_ != nullptr && routeOf(request.path) == Route::Repo) {
        return packages_->answer(request);
    }
    return std::nullopt;
}

ServiceResponse OperatorRoutes::health(const ServiceRequest &request) const {
    if (!isRead(request)) {
        return readOnly();
    }
    // A balancer asks often: the reply is a constant, and the only work is one trivial query.
    if (const auto answered = storage_.ping(); !answered) {
        failedHealthChecks_.fetch_add(1, std::memory_order_relaxed);
        auto reply =
            errorResponse(status::kServiceUnavailable, "the database does not answer: " + answered.error().describe());
        reply.headers.emplace_back("Cache-Control", "no-store");
        return reply;
    }
    return ServiceResponse{status::kOk, std::string(kHealthy), {{"Cache-Control", "no-store"}}};
}

ServiceResponse OperatorRoutes::metrics(const ServiceRequest &request) const {
    if (!isRead(request)) {
        return readOnly();
    }
    MetricsSnapshot gauges = frontGauges_ ? frontGauges_() : MetricsSnapshot{};
    gauges.databaseErrors = service_.databaseErrors() + failedHealthChecks_.load(std::memory_order_relaxed);
    gauges.replyCacheBytes = service_.replyCacheBytes();
    gauges.replyCacheHits = service_.replyCacheHits();
    return ServiceResponse{status::kOk,
                           metrics_.render(gauges),
                           {{"Content-Type", std::string(kMetricsContentType)}, {"Cache-Control", "no-store"}}};
}

} // namespace qv::server
