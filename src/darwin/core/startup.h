// The phone library's process-wide objects. The start-up file creates each one once and never destroys it: store
// threads may still use them while the process exits.
#pragma once

#include "darwin/adapters/objc_runtime.h"
#include "darwin/store/latest_store.h"
#include "service/resource_bundle.h"

namespace qv::darwin {

ObjcRuntime &objcRuntime();
const ResourceBundle &resourceBundle();
LatestStore &latestStore();

} // namespace qv::darwin
