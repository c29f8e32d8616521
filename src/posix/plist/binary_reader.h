// Binary property lists read into a flat object table, bounded against hostile input.
#pragma once

#include <string_view>

#include "base/result.h"
#include "posix/plist/plist_table.h"

namespace qv::posix::plist {

inline constexpr std::string_view kBinaryMagic = "bplist00";

inline bool isBinaryPropertyList(std::string_view bytes) {
    return bytes.substr(0, kBinaryMagic.size()) == kBinaryMagic;
}

// Reads every object reachable from the top object, each once, without recursion. What the objects expand to is
// bounded by a small multiple of the input's size, however often the input names one stored object.
// Fails with MalformedPropertyList and a one-line reason.
Result<PlistTable> readBinaryPropertyList(std::string_view bytes);

} // namespace qv::posix::plist
