// The hooks command: the hook table as lines or JSON.
#include "commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/value.h"
#include "core/hook_table.h"

namespace qvdovrin {

namespace {

constexpr std::string_view kNoSignature = "-";
constexpr std::size_t kColumnCount = 7;

using Line = std::array<std::string, kColumnCount>;

Line lineOf(const qv::HookRow &row) {
    return {std::to_string(row.number),
            std::string(qv::hookGroupName(row.group)),
            std::string(row.className),
            std::string(row.selector),
            std::string(qv::hookKindName(row.kind)),
            std::string(row.typeSignature.empty() ? kNoSignature : row.typeSignature),
            std::string(qv::hookConditionName(row.condition))};
}

qv::Value jsonOf(const qv::HookRow &row) {
    return qv::Dictionary{{"number", row.number},
                          {"group", qv::hookGroupName(row.group)},
                          {"class", row.className},
                          {"selector", row.selector},
                          {"kind", qv::hookKindName(row.kind)},
                          {"signature", row.typeSignature},
                          {"condition", qv::hookConditionName(row.condition)}};
}

// Columns padded to their widest cell, the last one left ragged.
void printAligned(std::ostream &out, const std::vector<Line> &lines) {
    std::array<std::size_t, kColumnCount> widths{};
    for (const Line &line : lines) {
        for (std::size_t column = 0; column < kColumnCount; ++column) {
            widths[column] = std::max(widths[column], line[column].size());
        }
    }
    for (const Line &line : lines) {
        std::string text;
        for (std::size_t column = 0; column < kColumnCount; ++column) {
            text += line[column];
            if (column + 1 < kColumnCount) {
                text.append(widths[column] - line[column].size() + 2, ' ');
            }
        }
        out << text << "\n";
    }
}

} // namespace

void registerHooksCommand(CLI::App &app, Io &io) {
    auto json = std::make_shared<bool>(false);
    auto *command =
        app.add_subcommand("hooks", "Print the hook table: number, group, class, selector, kind, signature, condition");
    command->add_flag("--json", *json, "Print a JSON array of row objects instead of aligned lines");
    command->callback([json, &io] {
        if (*json) {
            qv::Array array;
            for (const qv::HookRow &row : qv::hookTable()) {
                array.push_back(jsonOf(row));
            }
            io.out << qv::toJson(array) << "\n";
            return;
        }
        std::vector<Line> lines{{"#", "group", "class", "selector", "kind", "signature", "condition"}};
        for (const qv::HookRow &row : qv::hookTable()) {
            lines.push_back(lineOf(row));
        }
        printAligned(io.out, lines);
    });
}

} // namespace qvdovrin
