// Fuzz target: the search-page reader must take any bytes, and rank distinct digit-only app ids from 1 upwards.
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "service/service_client.h"

namespace {

// The link pattern's \d is the platform's: any Unicode decimal digit, so an id may hold non-ASCII digits such as
// U+07C6. No ASCII character but 0-9 may get in, though.
bool onlyDigits(const std::string &appId) {
    for (const char c : appId) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80 && (c < '0' || c > '9')) { // NOLINT(readability-magic-numbers): the ASCII range
            return false;
        }
    }
    return !appId.empty();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view page(reinterpret_cast<const char *>(data), size);
    (void)qv::queryStringFromHTML(page);
    const auto results = qv::searchResultsFromHTML(page);
    std::set<std::string> seen;
    std::int64_t expectedRank = 1;
    for (const auto &result : results) {
        if (result.rank != expectedRank++ || !onlyDigits(result.appId) || !seen.insert(result.appId).second) {
            std::abort();
        }
    }
    return 0;
}
