// Fuzz target: the search-page reader must take any bytes, and rank distinct digit-only app ids from 1 upwards.
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "service/service_client.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view page(reinterpret_cast<const char *>(data), size);
    (void)qv::queryStringFromHTML(page);
    const auto results = qv::searchResultsFromHTML(page);
    std::set<std::string> seen;
    std::int64_t expectedRank = 1;
    for (const auto &result : results) {
        if (result.rank != expectedRank++ || result.appId.empty() || !seen.insert(result.appId).second ||
            result.appId.find_first_not_of("0123456789") != std::string::npos) {
            std::abort();
        }
    }
    return 0;
}
