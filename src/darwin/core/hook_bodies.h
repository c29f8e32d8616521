// What a file of hook bodies needs: the binding helpers, the shared body shapes, and the section its bindings go in.
#pragma once

#include "core/hook_binding.h"
#include "darwin/adapters/objc_runtime.h"
#include "darwin/core/ownership.h"

#include <span>
#include <type_traits>

// Each file of hook bodies ends with its bindings, declared QV_HOOK_BODIES std::array kBindings{...}. The linker
// gathers every file's bindings into one section of the library, where start-up reads them all (hookBodiesInImage),
// so a new body needs no list, header or start-up call of its own; "used" keeps them from being stripped.
#define QV_HOOK_BODIES_SEGMENT "__DATA"
#define QV_HOOK_BODIES_SECTION "__qv_bodies"
#define QV_HOOK_BODIES [[gnu::used, gnu::section(QV_HOOK_BODIES_SEGMENT "," QV_HOOK_BODIES_SECTION)]] constinit const

namespace qv::darwin {

// Every binding of every file of hook bodies linked into the image that holds address.
std::span<const BodyBinding> hookBodiesInImage(const void *address);

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

} // namespace qv::darwin
