// The files of the phone's hook bodies, each binding its own bodies into the build's table.
#pragma once

#include "core/hook_binding.h"
#include "core/phone_bodies.h"
#include "darwin/adapters/objc_runtime.h"
#include "darwin/core/ownership.h"

#include <type_traits>

namespace qv::darwin {

template <MethodImplementation &Orig, void (*After)(id), class Signature> struct OrigThen;

// The body that many rows share: call the original with every argument, then run After on the receiver, and hand
// back whatever the original returned, untouched. Signature is the method's, without receiver and selector:
// OrigThen<origFetch, rememberStore, void *(id, id, id)>::body.
template <MethodImplementation &Orig, void (*After)(id), class Result, class... Arguments>
struct OrigThen<Orig, After, Result(Arguments...)> {
    static Result body(id self, SEL _cmd, Arguments... arguments) {
        const auto original = callable<Result (*)(id, SEL, Arguments...)>(Orig);
        if constexpr (std::is_void_v<Result>) {
            original(self, _cmd, arguments...);
            After(self);
        } else {
            Result result = original(self, _cmd, arguments...);
            After(self);
            return result;
        }
    }
};

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
