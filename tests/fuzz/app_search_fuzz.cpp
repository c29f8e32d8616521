// Fuzz target: any query or app name splits into search words without crashing, and every accepted query is
// bounded, clean and made of words that an app named by the same text would be found by.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "server/app_search.h"
#include "server/request_bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const auto terms = qv::server::searchTermsOf(text, text);
    if (terms.size() > qv::server::kMaxSearchTermsPerApp) {
        std::abort();
    }
    for (const auto &term : terms) {
        if (term.empty() || term.size() > qv::server::kMaxSearchTermBytes || !qv::server::isCleanText(term)) {
            std::abort();
        }
    }
    const auto search = qv::server::parseAppSearch(text);
    if (!search) {
        if (search.error().code != qv::ErrorCode::BadRequest || search.error().detail.empty()) {
            std::abort();
        }
        return 0;
    }
    if (size > qv::server::kMaxSearchQueryBytes || search->words.empty() ||
        search->words.size() > qv::server::kMaxSearchWords) {
        std::abort();
    }
    // An app titled with the query itself is found by it, unless its words pass the per-app cap.
    for (const auto &word : search->words) {
        const bool found = std::any_of(terms.begin(), terms.end(), [&](const std::string &term) {
            return term >= word && term < qv::server::searchWordBound(word);
        });
        if (!found && terms.size() < qv::server::kMaxSearchTermsPerApp) {
            std::abort();
        }
    }
    return 0;
}
