// What the commands that talk to the service share: where the service is, and checking a store identifier.
#pragma once

#include <string>

#include "service/service_endpoints.h"

namespace CLI {
class App;
}

namespace qvdovrin {

// --server wins over QV_API_BASE_URL / QV_LOOKUP_URL, which win over the built-in defaults.
qv::ServiceEndpoints endpointsFor(const std::string &serverUrl);
// The text when it is decimal digits; BadInput otherwise.
std::string checkedStoreIdentifier(const std::string &text);
void addServerOption(CLI::App &command, std::string &serverUrl);

} // namespace qvdovrin
