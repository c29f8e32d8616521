// Fuzz target: the service's report and event body readers must refuse or accept any bytes without crashing, and
// what they accept must satisfy the limits the storage relies on: clean text, bounded sizes, only known fields.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/json.h"
#include "server/request_bodies.h"

namespace {
constexpr std::int64_t kPathAppId = 42;

bool refusedProperly(const qv::Error &error) {
    return (error.code == qv::ErrorCode::BadRequest || error.code == qv::ErrorCode::PayloadTooLarge) &&
           !error.detail.empty();
}

void checkReport(std::string_view body) {
    const auto report = qv::server::parseVersionReport(body, kPathAppId);
    if (!report) {
        if (!refusedProperly(report.error())) {
            std::abort();
        }
        return;
    }
    if (report->appId != kPathAppId || report->versions.empty() ||
        report->versions.size() > qv::server::kDefaultMaxVersionsPerReport ||
        !qv::server::isCleanText(report->bundleId) || !qv::server::isCleanText(report->title)) {
        std::abort();
    }
    for (const auto &version : report->versions) {
        if (version.externalId < 0 || version.display.size() > qv::server::kMaxDisplayLength ||
            !qv::server::isCleanText(version.display)) {
            std::abort();
        }
    }
}

void checkEvent(std::string_view body) {
    const auto event = qv::server::parseSearchEvent(body);
    if (!event) {
        if (!refusedProperly(event.error())) {
            std::abort();
        }
        return;
    }
    // What is stored must read back as JSON and never be larger than what came in.
    if (!qv::server::isCleanText(event->query) || !qv::server::isCleanText(event->bodyJson) ||
        event->bodyJson.size() > body.size() || !qv::parseJson(event->bodyJson)) {
        std::abort();
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view body(reinterpret_cast<const char *>(data), size);
    checkReport(body);
    checkEvent(body);
    return 0;
}
