// What a person may type to find an app, and the words an app is found by, the same for every database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace qv::server {

// Longer queries are refused rather than cut, so a result never answers a question that was not asked.
inline constexpr std::size_t kMaxSearchQueryBytes = 200;
inline constexpr std::size_t kMaxSearchWords = 8;
inline constexpr std::size_t kMaxSearchResults = 50;
// An app is found by at most this many words of its names, each kept to at most this many bytes.
inline constexpr std::size_t kMaxSearchTermsPerApp = 32;
inline constexpr std::size_t kMaxSearchTermBytes = 64;

// A search as the databases run it: every word must begin one of an app's words; an all-digit query also finds the
// app with that store identifier.
struct AppSearch {
    std::vector<std::string> words;
    std::optional<std::int64_t> storeIdentifier;
};

// The words of a text: runs of letters and digits, case-folded, each cut (at a character) to kMaxSearchTermBytes.
// Punctuation separates, so "com.example.notes" is three words.
std::vector<std::string> searchWordsOf(std::string_view text);

// The distinct words an app is found by: those of its title, then of its bundle identifier, at most
// kMaxSearchTermsPerApp of them.
std::vector<std::string> searchTermsOf(std::string_view bundleId, std::string_view title);

// BadRequest when the query is empty, too long, not clean text, has too many words, or has no letter or digit.
Result<AppSearch> parseAppSearch(std::string_view query);

// The least text greater than every text that begins with the word, so "term >= word AND term < bound" is a prefix
// match that a byte-ordered index answers with one range.
std::string searchWordBound(const std::string &word);

} // namespace qv::server
