// Reading a whole JSON document from a file, for the tools that take their input as JSON files.
#pragma once

#include <string>

#include "base/result.h"
#include "base/value.h"

namespace qv::posix {

// The file's JSON value; FileUnreadable, or MalformedJson whose detail names the path and the parser's reason.
Result<Value> readJsonFile(const std::string &path);

} // namespace qv::posix
