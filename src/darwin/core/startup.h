// The phone library's process-wide objects, created once by the start-up file.
#pragma once

#include "darwin/adapters/objc_runtime.h"
#include "darwin/store/latest_store.h"
#include "service/resource_bundle.h"

namespace qv::darwin {

// None of them is ever destroyed: store threads may still use them while the process exits.
ObjcRuntime &objcRuntime();
const ResourceBundle &resourceBundle();
LatestStore &latestStore();

} // namespace qv::darwin
