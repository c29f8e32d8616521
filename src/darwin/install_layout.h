// Which install layout this copy of the library was built for.
#pragma once

#include "service/resource_bundle.h"

namespace qv::darwin {

InstallLayout installLayout();

} // namespace qv::darwin
