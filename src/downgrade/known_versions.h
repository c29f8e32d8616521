// The list of an app's known versions: the service's versions resource, mapped onto records, newest first.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "base/value.h"
#include "platform/http.h"
#include "platform/queue.h"

namespace qv {

// One known version; either property may be missing from the service's reply.
struct QVVersion {
    std::optional<std::string> bundle_version;      // the version text shown to users
    std::optional<std::string> external_identifier; // the store's external version identifier, in decimal

    friend bool operator==(const QVVersion &, const QVVersion &) = default;
};

// What a version whose display text the service does not know yet (an empty "bundle_version") is shown as.
inline constexpr std::string_view kUnknownVersionText = "Unknown version";

// The version's text as a list shows it: its display text, kUnknownVersionText when the service sent it empty, and
// blank when the service left it out.
std::string shownVersionText(const QVVersion &version);

// Maps a reply that is an array of objects onto records; nothing when the reply has another shape or a
// property holds something other than text, a number or null.
std::optional<std::vector<QVVersion>> versionsFromJson(const Value &json);

// Highest external identifier first, compared as integers (text that is not a number counts as 0); records
// with equal identifiers keep their order.
void sortNewestFirst(std::vector<QVVersion> &versions);

// The versions resource of a store identifier: the API base URL followed by "v1/apple_apps/%@/versions", the
// identifier put in as it is.
std::string knownVersionsUrl(std::string_view apiBaseUrl, std::string_view storeIdentifier);

// The versions newest first, or why there are none: ServiceUnreachable (no answer), ServiceRefused (an answer
// other than 2xx) or MalformedReply (not JSON, or not a list of versions).
using KnownVersions = Result<std::vector<QVVersion>>;

// Fetches the known versions on the global queue; the completion runs on the main queue.
void fetchKnownVersions(Http &http, Queues &queues, std::string_view apiBaseUrl, std::string_view storeIdentifier,
                        std::function<void(KnownVersions)> completion);

// The records as the service's JSON shape, missing properties left out.
Value versionsToJson(const std::vector<QVVersion> &versions);

} // namespace qv
