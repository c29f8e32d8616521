// What the commands that talk to the service share: where the service is, how long to wait, checking identifiers.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>

#include "service/service_endpoints.h"

namespace CLI {
class App;
class Validator;
} // namespace CLI

namespace qvdovrin {

// --server wins over QV_API_BASE_URL / QV_LOOKUP_URL, which win over the built-in defaults.
qv::ServiceEndpoints endpointsFor(const std::string &serverUrl);
// The text when it is decimal digits; BadInput otherwise.
std::string checkedStoreIdentifier(const std::string &text);
void addServerOption(CLI::App &command, std::string &serverUrl);
// A count or size given on the command line, read as the service reads identifiers: whole decimal digits from
// least to most, so "1e3", "0x10" or " 5" are refused rather than read as something else.
CLI::Validator wholeNumber(std::int64_t least, std::int64_t most = std::numeric_limits<std::int64_t>::max());

inline constexpr double kDefaultTimeoutSeconds = 15;
inline constexpr double kMaxTimeoutSeconds = 3600;
// --timeout SECONDS: how long each request may take; a positive number of seconds up to an hour.
void addTimeoutOption(CLI::App &command, double &timeoutSeconds);
// How long a command waits for its queued request: longer than the request itself may take, so that the user hears
// the request's own "timed out" rather than a vaguer complaint.
std::chrono::milliseconds replyWait(double timeoutSeconds);

} // namespace qvdovrin
