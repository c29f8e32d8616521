// Validation of what clients send: store identifiers, version report bodies and search event bodies.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"
#include "server/storage.h"

namespace qv::server {

inline constexpr std::size_t kMaxDisplayLength = 256;
inline constexpr std::size_t kMaxNameLength = 1024;
inline constexpr std::size_t kMaxQueryLength = 1024;
// A search event carries a query and a page of results; anything near this size is not one.
inline constexpr std::size_t kMaxEventBytes = std::size_t{16} * 1024;
inline constexpr std::size_t kDefaultMaxVersionsPerReport = 2000;

// True when the text is UTF-8 without NUL: what every stored or echoed piece of a request must be.
bool isCleanText(std::string_view text);

// A store or external identifier: decimal digits that fit in 63 bits (strictInteger's default range), as text or
// as a non-negative integer.
std::optional<std::int64_t> identifierFrom(const Value &value);

// A version report for the app named in the path: {"bundle_id","identifier","title","versions":[…]} whose
// entries hold at least "display" (text) and "externalId" (identifier); other keys of an entry are ignored.
// A refusal is BadRequest with the reason a client can act on, or PayloadTooLarge past maxVersions entries.
// Every text of the body, keys included, must be UTF-8 without NUL.
Result<VersionReport> parseVersionReport(std::string_view body, std::int64_t pathAppId,
                                         std::size_t maxVersions = kDefaultMaxVersionsPerReport);

// A search event: {"name":"search","attributes":{"query":…,"results":[{"appId","rank"}…], extra keys…}}, at most
// kMaxEventBytes (PayloadTooLarge beyond). Only the name, the query and each result's appId and rank are kept: the
// stored JSON is rebuilt from them, so extra keys cost no space.
Result<SearchEvent> parseSearchEvent(std::string_view body);

} // namespace qv::server
