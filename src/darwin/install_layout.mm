// Compiled once per package: the rootful and the rootless library differ only here and in how they are linked.
#include "darwin/install_layout.h"

#ifndef QV_ROOTLESS
#error "QV_ROOTLESS must be 0 or 1"
#endif

namespace qv::darwin {

InstallLayout installLayout() {
    return QV_ROOTLESS ? InstallLayout::Rootless : InstallLayout::Rootful;
}

} // namespace qv::darwin
