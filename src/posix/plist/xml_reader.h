// XML property lists read into a flat object table; nesting is capped before the XML parser sees the text.
#pragma once

#include <string_view>

#include "base/result.h"
#include "posix/plist/plist_table.h"

namespace qv::posix::plist {

// Fails with MalformedPropertyList and a one-line reason.
Result<PlistTable> readXmlPropertyList(std::string_view text);

} // namespace qv::posix::plist
