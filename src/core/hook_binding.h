// Binding bodies to rows, with compile-time checks that each body fits the row it is bound to.
#pragma once

#include "core/hook_table.h"
#include "platform/runtime.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace qv {

// What a row needs from its body: the new implementation and, for replacements, the slot that keeps orig.
struct HookBinding {
    MethodImplementation implementation = nullptr;
    MethodImplementation *orig = nullptr;
};

// One body bound to the row at position row (rowOf). The implementation is reached through a function so that
// bindings can be constant data.
struct BodyBinding {
    std::size_t row;
    MethodImplementation (*implementation)();
    MethodImplementation *orig;
};

// The bodies of one build; a row whose body has no binding is passed over.
class HookBodies {
  public:
    // The binding of the row numbered row.number.
    HookBinding &operator[](const HookRow &row) { return bindings_[static_cast<std::size_t>(row.number - 1)]; }
    const HookBinding &operator[](const HookRow &row) const {
        return bindings_[static_cast<std::size_t>(row.number - 1)];
    }

    // Binds every entry whose row is in the table; the problems (a row bound twice or never, an entry for no row)
    // come back as one line each, and a row bound twice keeps its first body.
    std::vector<std::string> bind(std::span<const BodyBinding> entries);

  private:
    std::array<HookBinding, kHookRowCount> bindings_{};
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
template <std::size_t Row, class Function>
concept FitsSelectorOf = Row < kHookRowCount &&FunctionPointer<Function> && callableWith<Function>(
                                   std::make_index_sequence<selectorArgumentCount(hookRow(Row).selector) + 2>());

template <std::size_t Row>
concept ReplacesMethod = Row < kHookRowCount &&isReplacement(hookRow(Row).kind);

template <std::size_t Row>
concept AddsMethod = Row < kHookRowCount && !isReplacement(hookRow(Row).kind);

template <FunctionPointer auto Function> MethodImplementation implementationOf() {
    return reinterpret_cast<MethodImplementation>(Function);
}

// A replacement row's body and the slot that receives orig; only replacement rows can be bound this way.
template <std::size_t Row, auto Function>
requires ReplacesMethod<Row> && FitsSelectorOf<Row, decltype(Function)>
constexpr BodyBinding replacement(MethodImplementation &orig) {
    return {Row, implementationOf<Function>, &orig};
}

// An addition row's body, which has no orig slot; only addition rows can be bound this way.
template <std::size_t Row, auto Function>
requires AddsMethod<Row> && FitsSelectorOf<Row, decltype(Function)>
constexpr BodyBinding addition() {
    return {Row, implementationOf<Function>, nullptr};
}

} // namespace qv
