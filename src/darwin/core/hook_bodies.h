// The files of the phone's hook bodies, each binding its own bodies into the build's table.
#pragma once

#include "core/hook_binding.h"
#include "core/phone_bodies.h"
#include "darwin/adapters/objc_runtime.h"
#include "darwin/core/ownership.h"

namespace qv::darwin {

void bindStoreObjectBodies(HookBodies &bodies);
void bindOfferButtonBodies(HookBodies &bodies);
void bindOfferConfirmBodies(HookBodies &bodies);
void bindHoldHintBodies(HookBodies &bodies);
void bindTweaksPageBodies(HookBodies &bodies);
void bindPurchasePipelineBodies(HookBodies &bodies);
void bindResourceBodies(HookBodies &bodies);
void bindAnalyticsBodies(HookBodies &bodies);
void bindUpdateFilterBodies(HookBodies &bodies);
void bindUpdatesTableBodies(HookBodies &bodies);
void bindUpdateSwipeBodies(HookBodies &bodies);
void bindRedesignedUpdatesBodies(HookBodies &bodies);

} // namespace qv::darwin
