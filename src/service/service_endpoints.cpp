// URL forming for the service client.
#include "service/service_endpoints.h"

#include <algorithm>
#include <cstdint>

#include "base/text.h"

namespace qv {

namespace {

std::string withTrailingSlash(std::string url) {
    if (url.empty() || url.back() != '/') {
        url += '/';
    }
    return url;
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        const char lower = (text[i] >= 'A' && text[i] <= 'Z') ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
        if (lower != prefix[i]) {
            return false;
        }
    }
    return true;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '-' || c == '.';
}

// host, [IPv6] or either followed by ":port".
Result<void> checkAuthority(std::string_view authority) {
    std::string_view host = authority;
    std::string_view port;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string_view::npos || close == 1) {
            return fail(ErrorCode::NotServiceAddress, "the IPv6 address is not closed by \"]\"");
        }
        for (const char c : authority.substr(1, close - 1)) {
            if (!isDigit(c) && !((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) && c != ':' && c != '.') {
                return fail(ErrorCode::NotServiceAddress, "the IPv6 address holds a character it cannot hold");
            }
        }
        host = authority.substr(0, close + 1);
        const auto rest = authority.substr(close + 1);
        if (!rest.empty() && rest.front() != ':') {
            return fail(ErrorCode::NotServiceAddress, "only a port may follow the IPv6 address");
        }
        port = rest.empty() ? rest : rest.substr(1);
    } else if (const auto colon = authority.find(':'); colon != std::string_view::npos) {
        host = authority.substr(0, colon);
        port = authority.substr(colon + 1);
        if (port.empty()) {
            return fail(ErrorCode::NotServiceAddress, "the port after \":\" is missing");
        }
    }
    if (host.empty()) {
        return fail(ErrorCode::NotServiceAddress, "the address names no host");
    }
    if (host.front() != '[' && !std::all_of(host.begin(), host.end(), isHostCharacter)) {
        return fail(ErrorCode::NotServiceAddress,
                    "the host may hold only letters, digits, \"-\" and \".\" (write other names in their ASCII form)");
    }
    if (port.empty()) {
        return {};
    }
    constexpr std::int64_t kLastPort = 65535;
    if (!strictInteger(port, 1, kLastPort)) {
        return fail(ErrorCode::NotServiceAddress, "the port is not a number from 1 to 65535");
    }
    return {};
}

} // namespace

Result<void> checkServiceAddress(std::string_view address) {
    std::string_view rest;
    if (startsWithNoCase(address, "https://")) {
        rest = address.substr(8);
    } else if (startsWithNoCase(address, "http://")) {
        rest = address.substr(7);
    } else {
        return fail(ErrorCode::NotServiceAddress, "the address must start with http:// or https://");
    }
    for (const char c : address) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7F) {
            return fail(ErrorCode::NotServiceAddress,
                        "the address may not hold spaces, control or non-ASCII characters");
        }
        if (c == '?' || c == '#' || c == '@') {
            return fail(ErrorCode::NotServiceAddress, "the address may not hold a user, a query or a fragment");
        }
    }
    const auto slash = rest.find('/');
    if (Result<void> authority = checkAuthority(rest.substr(0, slash)); !authority) {
        return authority;
    }
    if (address.back() != '/') {
        return fail(ErrorCode::NotServiceAddress, "the address must end in \"/\"");
    }
    return {};
}

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
