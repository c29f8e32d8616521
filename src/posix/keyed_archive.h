// Keyed archives (the platform's object-graph property lists) <-> qv::Value, bounded against hostile input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/result.h"
#include "base/value.h"

namespace qv::posix {

// Limits that keep a hostile archive from exhausting the stack or memory.
inline constexpr std::size_t kMaxKeyedArchiveBytes = std::size_t{8} * 1024U * 1024U;
inline constexpr int kMaxKeyedArchiveDepth = 256;
inline constexpr std::size_t kMaxKeyedArchiveValues = std::size_t{4} * 1024U * 1024U;

// The frame every keyed archive carries: who wrote it, its format version, and the marker that is object 0.
inline constexpr std::string_view kKeyedArchiverName = "NSKeyedArchiver";
inline constexpr std::int64_t kKeyedArchiveVersion = 100000;
inline constexpr std::string_view kKeyedArchiveNullMarker = "$null";
// The top-level key under which an archive made for one root object keeps that object.
inline constexpr std::string_view kKeyedArchiveRootKey = "root";

struct KeyedArchiveReadOptions {
    // Objects of classes other than the foundation collections and scalars are rejected by default. When allowed,
    // each becomes a dictionary of its encoded fields plus "$class" holding the class name.
    bool decodeUnknownClassesAsDictionaries = false;
};

// Decodes the object stored under the "root" key of $top. Accepts binary and XML property lists. Fails with
// MalformedPropertyList or MalformedArchive and a one-line reason.
Result<Value> decodeKeyedArchive(std::string_view bytes, const KeyedArchiveReadOptions &options = {});

// Decodes every key of $top; the result is a dictionary from each top-level key to its decoded object.
Result<Value> decodeKeyedArchiveTop(std::string_view bytes, const KeyedArchiveReadOptions &options = {});

// Archives one root object as a binary property list. Arrays and dictionaries keep their mutability in the class
// they are archived as; strings are plain property-list strings, numbers plain integers, reals and booleans.
// Fails with UnencodableValue (deep nesting, strings that are not valid UTF-8 or hold a NUL).
Result<std::string> encodeKeyedArchive(const Value &root);

} // namespace qv::posix
