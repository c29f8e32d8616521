// The available-tweaks page: the overlay always goes before the browser comes, whatever the lookup says.
#include "store/available_tweaks.h"

#include <gtest/gtest.h>

#include <optional>
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

struct PageStep {
    enum class What { Open, ViewLoaded } what;
    std::string address;               // for Open
    std::optional<std::string> toLoad; // what the step hands the web view
};

struct PageCase {
    const char *name;
    std::vector<PageStep> steps;
};

class Browser : public ::testing::TestWithParam<PageCase> {};

// The address asked for before the view existed is loaded once the view is there, and only then.
TEST_P(Browser, LoadsEachAddressOnceTheViewExists) {
    BrowserPage page;
    for (const PageStep &step : GetParam().steps) {
        const auto loaded = step.what == PageStep::What::Open ? page.open(step.address) : page.viewLoaded();
        EXPECT_EQ(loaded, step.toLoad);
    }
}

using enum PageStep::What;

INSTANTIATE_TEST_SUITE_P(
    Orders, Browser,
    ::testing::Values(PageCase{"OpenedBeforeTheView", {{Open, "a", std::nullopt}, {ViewLoaded, "", "a"}}},
                      PageCase{"OpenedAfterTheView", {{ViewLoaded, "", std::nullopt}, {Open, "a", "a"}}},
                      PageCase{"LatestAddressWins",
                               {{Open, "a", std::nullopt}, {Open, "b", std::nullopt}, {ViewLoaded, "", "b"}}},
                      PageCase{"ViewLoadedTwice",
                               {{Open, "a", std::nullopt}, {ViewLoaded, "", "a"}, {ViewLoaded, "", std::nullopt}}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(BrowserLoadError, NamesTheReasonAndAddressAsText) {
    const std::string page = pageLoadErrorDocument("https://x.example/a?b=1&c=<2>", "The \"host\" <b>is</b> down");
    EXPECT_NE(page.find("The &quot;host&quot; &lt;b&gt;is&lt;/b&gt; down"), std::string::npos);
    EXPECT_NE(page.find("https://x.example/a?b=1&amp;c=&lt;2&gt;"), std::string::npos);
    EXPECT_EQ(page.find("<b>"), std::string::npos);
}

} // namespace
} // namespace qv
