// Binding bodies to rows, with compile-time checks that each body fits the row it is bound to.
#pragma once

#include "core/hook_table.h"
#include "platform/runtime.h"

#include <array>
#include <cstddef>
#include <span>
#include <type_traits>
#include <utility>

namespace qv {

// What a row needs from its body: the new implementation and, for replacements, the slot that keeps orig.
struct HookBinding {
    MethodImplementation implementation = nullptr;
    MethodImplementation *orig = nullptr;
};

// One entry of a file's binding table. The implementation is reached through a function so that the table can
// be constexpr and checked against the file's list of bodies while it compiles.
struct BodyBinding {
    HookBody body;
    MethodImplementation (*implementation)();
    MethodImplementation *orig;
};

// The bodies of one build; a row whose body has no binding is passed over.
class HookBodies {
  public:
    HookBinding &operator[](HookBody body) { return bindings_[static_cast<std::size_t>(body)]; }
    const HookBinding &operator[](HookBody body) const { return bindings_[static_cast<std::size_t>(body)]; }

    void bind(std::span<const BodyBinding> table) {
        for (const BodyBinding &entry : table) {
            (*this)[entry.body] = {entry.implementation(), entry.orig};
        }
    }

  private:
    std::array<HookBinding, kHookBodyCount> bindings_{};
};

// Stands in for any argument in the checks below; never constructed outside them.
struct AnyArgument {
    template <class Argument> operator Argument() const;
};

// True when Function can be called with exactly Count arguments. Asked of the call rather than the function
// type, so ownership attributes on a body's result or parameters do not get in the way.
template <class Function, std::size_t... Index> constexpr bool callableWith(std::index_sequence<Index...> /*count*/) {
    return std::is_invocable_v<Function, decltype(static_cast<void>(Index), AnyArgument{})...>;
}

// A method body takes its receiver and selector, then one argument per ':' of the row's selector.
template <HookBody Body, class Function>
concept FitsSelectorOf = FunctionPointer<Function> &&
    callableWith<Function>(std::make_index_sequence<selectorArgumentCount(hookRow(Body).selector) + 2>());

template <HookBody Body>
concept ReplacesMethod = isReplacement(hookRow(Body).kind);

template <HookBody Body>
concept AddsMethod = !isReplacement(hookRow(Body).kind);

template <FunctionPointer auto Function> MethodImplementation implementationOf() {
    return reinterpret_cast<MethodImplementation>(Function);
}

// A replacement row's body and the slot that receives orig; only replacement rows can be bound this way.
template <HookBody Body, auto Function>
requires ReplacesMethod<Body> && FitsSelectorOf<Body, decltype(Function)>
constexpr BodyBinding replacement(MethodImplementation &orig) {
    return {Body, implementationOf<Function>, &orig};
}

// An addition row's body, which has no orig slot; only addition rows can be bound this way.
template <HookBody Body, auto Function>
requires AddsMethod<Body> && FitsSelectorOf<Body, decltype(Function)>
constexpr BodyBinding addition() {
    return {Body, implementationOf<Function>, nullptr};
}

// True when table binds every body of list exactly once and nothing else.
template <std::size_t Listed>
constexpr bool bindsExactly(std::span<const BodyBinding> table, const std::array<HookBody, Listed> &list) {
    if (table.size() != Listed) {
        return false;
    }
    for (const HookBody body : list) {
        std::size_t bindings = 0;
        for (const BodyBinding &entry : table) {
            bindings += entry.body == body ? 1 : 0;
        }
        if (bindings != 1) {
            return false;
        }
    }
    return true;
}

} // namespace qv
