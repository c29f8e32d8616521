// Where the service client sends its requests: the service's API base URL and the store lookup endpoint.
#pragma once

#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"

// Build-time defaults; a deployment passes its own through CMake (QV_API_BASE_URL, QV_LOOKUP_URL).
#ifndef QV_DEFAULT_API_BASE_URL
#define QV_DEFAULT_API_BASE_URL "http://127.0.0.1:8080/"
#endif
#ifndef QV_DEFAULT_LOOKUP_URL
#define QV_DEFAULT_LOOKUP_URL "http://127.0.0.1:8080/"
#endif

namespace qv {

struct ServiceEndpoints {
    // Both are absolute URLs ending in "/".
    std::string apiBaseUrl = QV_DEFAULT_API_BASE_URL;
    std::string lookupBaseUrl = QV_DEFAULT_LOOKUP_URL;

    // Endpoints with a trailing "/" added where it is missing, so paths can be appended as text.
    static ServiceEndpoints make(std::string apiBaseUrl, std::string lookupBaseUrl);
};

// Where the address of a person's own service is kept, beside the settings; absent or "" means the built-in one.
inline constexpr std::string_view kServiceAddressKey = "serviceAddress_QV";

// Whether the text can serve as the service's API base URL: an absolute http or https URL with a host name or IP
// address (and at most a port), ending in "/", all printable ASCII, without spaces, user, query or fragment. The
// failure says what is wrong in one line.
Result<void> checkServiceAddress(std::string_view address);

inline constexpr std::string_view kEventsPath = "v1/events";

// Bytes a URL query value carries as they are, besides ASCII letters and digits.
inline constexpr std::string_view kQueryValuePunctuation = "-._~";
// Bytes a URL path carries as they are, besides ASCII letters and digits.
inline constexpr std::string_view kPathPunctuation = "-._~!$&'()*+,;=:@/";

// The text with every byte other than an ASCII letter, a digit or one of `keep` written as %XX (upper-case hex).
std::string percentEncoded(std::string_view text, std::string_view keep = kQueryValuePunctuation);

// "v1/apple_apps/%@/versions" filled with the store identifier as it is.
std::string versionsPath(std::string_view storeIdentifier);
// The base URL with the path appended as a path component: one "/" between them, and characters that may not
// stand in a URL path percent-encoded.
std::string appendingPathComponent(std::string_view baseUrl, std::string_view path);

} // namespace qv
