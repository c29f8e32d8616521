// Values written as a keyed archive in a binary property list.
#pragma once

#include <string>

#include "base/result.h"
#include "base/value.h"

namespace qv::posix::plist {

// Archives one root object under the root key. Fails with UnencodableValue and a one-line reason.
Result<std::string> archiveRoot(const Value &root);

} // namespace qv::posix::plist
