// Keyed archives (the platform's object-graph property lists) <-> qv::Value, bounded against hostile input.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace qv::posix {

// Limits that keep a hostile archive from exhausting the stack or memory.
constexpr std::size_t kMaxKeyedArchiveBytes = std::size_t{8} * 1024U * 1024U;
constexpr int kMaxKeyedArchiveDepth = 256;
constexpr std::size_t kMaxKeyedArchiveValues = std::size_t{4} * 1024U * 1024U;

// The top-level key under which an archive made for one root object keeps that object.
constexpr const char *kKeyedArchiveRootKey = "root";

struct KeyedArchiveReadOptions {
    // Objects of classes other than the foundation collections and scalars are rejected by default. When allowed,
    // each becomes a dictionary of its encoded fields plus "$class" holding the class name.
    bool decodeUnknownClassesAsDictionaries = false;
};

// Outcome of decoding: a value, or a one-line reason.
struct KeyedArchiveDecoded {
    std::optional<Value> value;
    std::string error;
    bool ok() const { return value.has_value(); }
};

// Outcome of encoding: the binary property-list bytes, or a one-line reason.
struct KeyedArchiveEncoded {
    std::optional<std::string> bytes;
    std::string error;
    bool ok() const { return bytes.has_value(); }
};

// Decodes the object stored under the "root" key of $top. Accepts binary and XML property lists.
KeyedArchiveDecoded decodeKeyedArchive(std::string_view bytes, const KeyedArchiveReadOptions &options = {});

// Decodes every key of $top; the result is a dictionary from each top-level key to its decoded object.
KeyedArchiveDecoded decodeKeyedArchiveTop(std::string_view bytes, const KeyedArchiveReadOptions &options = {});

// Archives one root object as a binary property list. Arrays and dictionaries keep their mutability in the class
// they are archived as; strings are plain property-list strings, numbers plain integers, reals and booleans.
KeyedArchiveEncoded encodeKeyedArchive(const Value &root);

} // namespace qv::posix
