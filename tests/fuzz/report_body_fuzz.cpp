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
    if (report.value) {
        if (report.value->appId != kPathAppId || report.value->versions.empty()) {
            std::abort();
        }
        for (const auto &version : report.value->versions) {
            if (version.externalId < 0 || version.display.size() > qv::server::kMaxDisplayLength) {
                std::abort();
            }
        }
    } else if (report.error.empty()) {
        std::abort();
    }
    const auto event = qv::server::parseSearchEvent(body);
    if (!event.value && event.error.empty()) {
        std::abort();
    }
    return 0;
}
