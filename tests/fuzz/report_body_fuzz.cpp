// Fuzz target: the service's report and event body readers must refuse or accept any bytes without crashing, and
// what they accept must satisfy the limits the storage relies on.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "server/request_bodies.h"

namespace {
constexpr std::int64_t kPathAppId = 42;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view body(reinterpret_cast<const char *>(data), size);
    const auto report = qv::server::parseVersionReport(body, kPathAppId);
    if (report) {
        if (report->appId != kPathAppId || report->versions.empty()) {
            std::abort();
        }
        for (const auto &version : report->versions) {
            if (version.externalId < 0 || version.display.size() > qv::server::kMaxDisplayLength) {
                std::abort();
            }
        }
    } else if (report.error().code != qv::ErrorCode::BadRequest || report.error().detail.empty()) {
        std::abort();
    }
    const auto event = qv::server::parseSearchEvent(body);
    if (!event && (event.error().code != qv::ErrorCode::BadRequest || event.error().detail.empty())) {
        std::abort();
    }
    return 0;
}
