// Whole-file reading and crash-safe whole-file writing (temporary file, flush, rename).
#pragma once

#include <optional>
#include <string>

namespace qv::posix {

// The file's bytes, or nothing with a one-line reason in *error.
std::optional<std::string> readFile(const std::string &path, std::string *error = nullptr);

// Writes to a temporary file beside the target, flushes it to disk and renames it over the target, so a reader
// sees either the old or the new complete file. Returns false with a one-line reason in *error.
bool writeFileAtomically(const std::string &path, const std::string &bytes, std::string *error = nullptr);

} // namespace qv::posix
