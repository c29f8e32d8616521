// Ownership of a libplist node tree, released with the library's own free.
#pragma once

#include <memory>

#include <plist/plist.h>

namespace qv::posix::plist {

struct PlistDeleter {
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistOwner = std::unique_ptr<void, PlistDeleter>;

} // namespace qv::posix::plist
