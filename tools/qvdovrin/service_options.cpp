// Finding the service and checking identifiers for the service commands.
#include "service_options.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <string_view>

#include "commands.h"
#include "server/request_bodies.h"

namespace qvdovrin {

namespace {

std::string fromEnvironment(const char *name, const std::string &fallback) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::string(value) : fallback;
}

void checkServerUrl(const std::string &url) {
    if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0) {
        throw BadInput("the server URL must start with http:// or https://: " + url);
    }
}

} // namespace

// --server wins over QV_API_BASE_URL / QV_LOOKUP_URL, which win over the built-in defaults.
qv::ServiceEndpoints endpointsFor(const std::string &serverUrl) {
    const qv::ServiceEndpoints builtIn;
    std::string api = fromEnvironment("QV_API_BASE_URL", builtIn.apiBaseUrl);
    std::string lookup = fromEnvironment("QV_LOOKUP_URL", builtIn.lookupBaseUrl);
    if (!serverUrl.empty()) {
        api = lookup = serverUrl;
    }
    checkServerUrl(api);
    checkServerUrl(lookup);
    return qv::ServiceEndpoints::make(api, lookup);
}

std::string checkedStoreIdentifier(const std::string &text) {
    if (!qv::server::identifierFrom(std::string_view(text))) {
        throw BadInput("a store identifier is decimal digits: " + text);
    }
    return text;
}

void addServerOption(CLI::App &command, std::string &serverUrl) {
    command.add_option("--server", serverUrl,
                       "Service base URL (default: $QV_API_BASE_URL, $QV_LOOKUP_URL or " QV_DEFAULT_API_BASE_URL ")");
}

} // namespace qvdovrin
