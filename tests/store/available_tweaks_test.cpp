// The available-tweaks page: the overlay always goes before the browser comes, whatever the lookup says.
#include "store/available_tweaks.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/scripted_ui.h"

namespace qv {
namespace {

class AvailableTweaks : public ::testing::TestWithParam<const char *> {};

TEST_P(AvailableTweaks, DismissesTheOverlayThenOpensThePage) {
    ScriptedUi ui;
    std::vector<std::string> asked;
    const BundleIdentifierLookup lookup = [&](const std::string &id, const std::function<void(std::string)> &done) {
        asked.push_back(id);
        done(GetParam());
    };
    showAvailableTweaks(ui, lookup, "284882215", "https://packages.example/");
    EXPECT_EQ(asked, std::vector<std::string>{"284882215"});
    EXPECT_EQ(ui.log, (std::vector<std::string>{"progress:Loading", "dismissProgress",
                                                "browser:https://packages.example/application/" +
                                                    std::string(GetParam()) + "/"}));
}

INSTANTIATE_TEST_SUITE_P(Answers, AvailableTweaks, ::testing::Values("com.example.notes", ""));

} // namespace
} // namespace qv
