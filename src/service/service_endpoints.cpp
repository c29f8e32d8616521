// URL forming for the service client.
#include "service/service_endpoints.h"

namespace qv {

namespace {

std::string withTrailingSlash(std::string url) {
    if (url.empty() || url.back() != '/') {
        url += '/';
    }
    return url;
}

} // namespace

ServiceEndpoints ServiceEndpoints::make(std::string apiBaseUrl, std::string lookupBaseUrl) {
    ServiceEndpoints endpoints;
    endpoints.apiBaseUrl = withTrailingSlash(std::move(apiBaseUrl));
    endpoints.lookupBaseUrl = withTrailingSlash(std::move(lookupBaseUrl));
    return endpoints;
}

std::string versionsPath(std::string_view storeIdentifier) {
    std::string path = "v1/apple_apps/";
    path += storeIdentifier;
    path += "/versions";
    return path;
}

std::string percentEncoded(std::string_view text, std::string_view keep) {
    static constexpr std::string_view kHexDigits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool asciiLetterOrDigit =
            (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
        if (asciiLetterOrDigit || keep.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += kHexDigits[byte >> 4U];
            encoded += kHexDigits[byte & 0xFU];
        }
    }
    return encoded;
}

std::string appendingPathComponent(std::string_view baseUrl, std::string_view path) {
    return withTrailingSlash(std::string(baseUrl)) + percentEncoded(path, kPathPunctuation);
}

} // namespace qv
