// The phone sources bind exactly the rows the hook table marks as bound, under the names the table gives.
#include "core/hook_table.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace qv {
namespace {

// Every name a darwin source registers with `bodies["name"] = ...`.
std::set<std::string> bodiesBoundOnThePhone() {
    const std::regex registration(R"re(bodies\["([A-Za-z0-9]+)"\]\s*=)re");
    std::set<std::string> names;
    const std::filesystem::path darwin = std::filesystem::path(QV_SOURCE_DIR) / "src" / "darwin";
    for (const auto &entry : std::filesystem::recursive_directory_iterator(darwin)) {
        if (entry.path().extension() != ".mm") {
            continue;
        }
        std::ifstream file(entry.path());
        std::stringstream text;
        text << file.rdbuf();
        const std::string source = text.str();
        for (std::sregex_iterator match(source.begin(), source.end(), registration), end; match != end; ++match) {
            names.insert((*match)[1].str());
        }
    }
    return names;
}

TEST(HookBindings, PhoneBindsEveryBoundRowAndNothingElse) {
    std::set<std::string> bound;
    for (const HookRow &row : hookTable()) {
        if (row.state == BodyState::Bound) {
            bound.emplace(row.body);
        }
    }
    EXPECT_EQ(bodiesBoundOnThePhone(), bound);
}

} // namespace
} // namespace qv
