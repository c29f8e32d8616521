// The requests an operator and a package manager make, answered before the version service sees them: the health
// check, the metrics and the package source.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

#include "server/metrics.h"
#include "server/package_source.h"
#include "server/storage.h"
#include "server/version_service.h"

namespace qv::server {

inline constexpr std::string_view kHealthRoute = "/healthz";
inline constexpr std::string_view kMetricsRoute = "/metrics";
inline constexpr std::string_view kMetricsContentType = "text/plain; version=0.0.4; charset=utf-8";

class OperatorRoutes {
  public:
    // The front's gauges are read through `frontGauges` when the metrics are asked for; the package source is
    // optional.
    OperatorRoutes(VersionStorage &storage, const VersionService &service, const ServiceMetrics &metrics,
                   std::function<MetricsSnapshot()> frontGauges, const PackageSource *packages = nullptr)
        : storage_(storage), service_(service), metrics_(metrics), frontGauges_(std::move(frontGauges)),
          packages_(packages) {}

    // The reply when the request is for one of these routes; nothing when the version service should answer.
    std::optional<ServiceResponse> answer(const ServiceRequest &request) const;

  private:
    ServiceResponse health(const ServiceRequest &request) const;
    ServiceResponse metrics(const ServiceRequest &request) const;

    VersionStorage &storage_;
    const VersionService &service_;
    const ServiceMetrics &metrics_;
    std::function<MetricsSnapshot()> frontGauges_;
    const PackageSource *packages_;
    mutable std::atomic<std::uint64_t> failedHealthChecks_{0};
};

} // namespace qv::server
