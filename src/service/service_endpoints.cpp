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

bool mayStandInPath(unsigned char c) {
    static constexpr std::string_view kPathPunctuation = "-._~!$&'()*+,;=:@/";
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           kPathPunctuation.find(static_cast<char>(c)) != std::string_view::npos;
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

std::string appendingPathComponent(std::string_view baseUrl, std::string_view path) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    std::string url(baseUrl);
    if (url.empty() || url.back() != '/') {
        url += '/';
    }
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (mayStandInPath(byte)) {
            url += c;
        } else {
            url += '%';
            url += kHexDigits[byte >> 4U];
            url += kHexDigits[byte & 0xFU];
        }
    }
    return url;
}

} // namespace qv
