// Collecting the bodies a build binds, and saying which rows came out without one or with two.
#include "core/hook_binding.h"

namespace qv {

std::vector<std::string> HookBodies::bind(std::span<const BodyBinding> entries) {
    std::vector<std::string> problems;
    std::array<int, kHookRowCount> bindingsOfRow{};
    for (const BodyBinding &entry : entries) {
        if (entry.row >= kHookRowCount || entry.implementation == nullptr) {
            problems.push_back("hook bodies: a binding names row position " + std::to_string(entry.row) +
                               ", which the table does not have");
            continue;
        }
        const HookRow &row = hookRow(entry.row);
        if (++bindingsOfRow[entry.row] > 1) {
            problems.push_back("hook bodies: row " + std::to_string(row.number) +
                               " is bound twice; the first body stays");
            continue;
        }
        (*this)[row] = {entry.implementation(), entry.orig};
    }
    for (const HookRow &row : hookTable()) {
        if (bindingsOfRow[static_cast<std::size_t>(row.number - 1)] == 0) {
            problems.push_back("hook bodies: no body bound for hook row " + std::to_string(row.number));
        }
    }
    return problems;
}

} // namespace qv
