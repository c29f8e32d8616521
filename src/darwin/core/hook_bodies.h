// The phone's hook bodies, bound by name to the rows of the hook table, and the helpers the bodies share.
#pragma once

#include "core/hook_installer.h"
#include "darwin/adapters/objc_runtime.h"
#include "darwin/core/ownership.h"

namespace qv::darwin {

// Each file of hook bodies adds its own bodies under the names the hook table gives them.
void bindStoreObjectBodies(HookBodies &bodies);
void bindPurchasePipelineBodies(HookBodies &bodies);
void bindResourceBodies(HookBodies &bodies);
void bindAnalyticsBodies(HookBodies &bodies);
void bindUpdateFilterBodies(HookBodies &bodies);

// All bodies of this build, gathered once.
const HookBodies &hookBodies();

// A replacement body and the slot that receives orig.
template <class Function> HookBinding replacement(Function function, MethodImplementation &orig) {
    return {implementation(function), &orig};
}
// An added method's body.
template <class Function> HookBinding addition(Function function) {
    return {implementation(function), nullptr};
}

} // namespace qv::darwin
