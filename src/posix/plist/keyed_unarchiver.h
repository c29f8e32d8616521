// Keyed archives read from a property-list table into values: the archive's frame, its classes and references.
#pragma once

#include <cstddef>

#include "base/result.h"
#include "base/value.h"
#include "posix/keyed_archive.h"
#include "posix/plist/plist_table.h"

namespace qv::posix::plist {

// The object stored under the root key of $top. inputSize is the size of the bytes the table was read from; it
// bounds how many values the archive may expand to. Fails with MalformedArchive and a one-line reason.
Result<Value> unarchiveRoot(const PlistTable &table, std::size_t inputSize, const KeyedArchiveReadOptions &options);

// Every key of $top, as a dictionary from each top-level key to its decoded object.
Result<Value> unarchiveTop(const PlistTable &table, std::size_t inputSize, const KeyedArchiveReadOptions &options);

} // namespace qv::posix::plist
