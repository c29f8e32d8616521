// Finding the service and checking identifiers for the service commands.
#include "service_options.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdlib>
#include <string_view>

#include "base/text.h"
#include "commands.h"

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
    if (const auto identifier = qv::strictInteger(text); !identifier) {
        throw BadInput(identifier.error().code == qv::ErrorCode::IntegerOutOfRange
                           ? "a store identifier is too large (at most 9223372036854775807): " + text
                           : "a store identifier is decimal digits: " + text);
    }
    return text;
}

CLI::Validator wholeNumber(std::int64_t least, std::int64_t most) {
    return CLI::Validator(
        [least, most](std::string &text) -> std::string {
            const auto number = qv::strictInteger(text, least, most);
            return number ? std::string() : number.error().describe();
        },
        "NUMBER");
}

void addServerOption(CLI::App &command, std::string &serverUrl) {
    command.add_option("--server", serverUrl,
                       "Service base URL (default: $QV_API_BASE_URL, $QV_LOOKUP_URL or " QV_DEFAULT_API_BASE_URL ")");
}

void addTimeoutOption(CLI::App &command, double &timeoutSeconds) {
    const CLI::Validator seconds(
        [](std::string &text) -> std::string {
            char *end = nullptr;
            const double value = std::strtod(text.c_str(), &end);
            if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value) || value <= 0 ||
                value > kMaxTimeoutSeconds) {
                return "expected seconds above 0 and at most 3600, not \"" + text + "\"";
            }
            return {};
        },
        "SECONDS");
    command.add_option("--timeout", timeoutSeconds, "Seconds each request to the service may take")
        ->check(seconds)
        ->capture_default_str();
}

std::chrono::milliseconds replyWait(double timeoutSeconds) {
    constexpr double kMargin = 5;
    constexpr double kMillisecondsPerSecond = 1000;
    return std::chrono::milliseconds(std::llround((timeoutSeconds + kMargin) * kMillisecondsPerSecond));
}

} // namespace qvdovrin
