// Whole-file reading and crash-safe whole-file writing (temporary file, flush, rename).
#pragma once

#include <string>

#include "base/result.h"

namespace qv::posix {

// The file's bytes, or FileUnreadable with a one-line reason naming the path.
Result<std::string> readFile(const std::string &path);

// Writes to a temporary file beside the target, flushes it to disk and renames it over the target, so a reader
// sees either the old or the new complete file. Fails with FileUnwritable and a one-line reason.
Result<void> writeFileAtomically(const std::string &path, const std::string &bytes);

} // namespace qv::posix
