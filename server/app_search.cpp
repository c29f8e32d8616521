// Splitting app names and queries into case-folded words, with ICU's idea of a letter and of case.
#include "server/app_search.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>

#include "server/request_bodies.h"

namespace qv::server {

namespace {

// Never a letter or digit, so no stored word holds it, and it sorts after every other character.
constexpr std::string_view kLastCharacter = "\xF4\x8F\xBF\xBF"; // U+10FFFF

void appendCodePoint(std::string &text, UChar32 codePoint) {
    char encoded[U8_MAX_LENGTH];
    std::int32_t length = 0;
    U8_APPEND_UNSAFE(encoded, length, codePoint);
    text.append(encoded, static_cast<std::size_t>(length));
}

} // namespace

std::vector<std::string> searchWordsOf(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    bool full = false;
    const auto finish = [&] {
        if (!word.empty()) {
            words.push_back(std::move(word));
        }
        word.clear();
        full = false;
    };
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t at = 0;
    while (at < length) {
        UChar32 codePoint = 0;
        U8_NEXT(bytes, at, length, codePoint);
        if (codePoint < 0 || u_isalnum(codePoint) == 0) {
            finish();
            continue;
        }
        std::string folded;
        appendCodePoint(folded, u_foldCase(codePoint, U_FOLD_CASE_DEFAULT));
        if (full || word.size() + folded.size() > kMaxSearchTermBytes) {
            full = true; // the rest of a long word is dropped, never split into a word of its own
            continue;
        }
        word += folded;
    }
    finish();
    return words;
}

std::vector<std::string> searchTermsOf(std::string_view bundleId, std::string_view title) {
    std::vector<std::string> terms;
    for (const auto text : {title, bundleId}) {
        for (auto &word : searchWordsOf(text)) {
            if (terms.size() == kMaxSearchTermsPerApp) {
                return terms;
            }
            if (std::find(terms.begin(), terms.end(), word) == terms.end()) {
                terms.push_back(std::move(word));
            }
        }
    }
    return terms;
}

Result<AppSearch> parseAppSearch(std::string_view query) {
    if (query.empty()) {
        return fail(ErrorCode::BadRequest,
                    "the query is empty; give an app name, bundle identifier or store identifier");
    }
    if (query.size() > kMaxSearchQueryBytes) {
        return fail(ErrorCode::BadRequest,
                    "the query is longer than " + std::to_string(kMaxSearchQueryBytes) + " bytes");
    }
    if (!isCleanText(query)) {
        return fail(ErrorCode::BadRequest, "the query is not valid UTF-8 or holds a NUL character");
    }
    AppSearch search;
    for (auto &word : searchWordsOf(query)) {
        if (std::find(search.words.begin(), search.words.end(), word) == search.words.end()) {
            search.words.push_back(std::move(word));
        }
    }
    if (search.words.empty()) {
        return fail(ErrorCode::BadRequest, "the query has no letter or digit");
    }
    if (search.words.size() > kMaxSearchWords) {
        return fail(ErrorCode::BadRequest, "the query has more than " + std::to_string(kMaxSearchWords) + " words");
    }
    std::string_view trimmed = query;
    while (!trimmed.empty() && trimmed.front() == ' ') {
        trimmed.remove_prefix(1);
    }
    while (!trimmed.empty() && trimmed.back() == ' ') {
        trimmed.remove_suffix(1);
    }
    search.storeIdentifier = identifierFrom(trimmed);
    return search;
}

std::string searchWordBound(const std::string &word) {
    return word + std::string(kLastCharacter);
}

} // namespace qv::server
