// The Ui that hops to the main queue: nothing reaches the drawing adapter from another thread, and order is kept.
#include "core/main_queue_ui.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "fakes/fake_queue.h"
#include "fakes/scripted_ui.h"

namespace qv {
namespace {

class EmptyScreen final : public ScreenModel {
  public:
    ScreenKind kind() const override { return ScreenKind::SettingsForm; }
};

struct HopCase {
    const char *name;
    std::function<void(Ui &)> call;
    std::vector<std::string> drawn;
};

class MainQueueHop : public ::testing::TestWithParam<HopCase> {};

// Called on a store thread, the call waits for the main queue; called on the main queue, it is drawn at once.
TEST_P(MainQueueHop, DrawsOnlyOnTheMainQueue) {
    for (const bool onMain : {false, true}) {
        SCOPED_TRACE(onMain ? "on the main queue" : "on a store thread");
        ScriptedUi drawing;
        FakeQueue mainQueue;
        bool isMain = onMain;
        MainQueueUi ui(drawing, mainQueue, [&] { return isMain; });
        GetParam().call(ui);
        if (!onMain) {
            EXPECT_TRUE(drawing.log.empty());
            isMain = true;
            mainQueue.drain();
        }
        EXPECT_EQ(drawing.log, GetParam().drawn);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Calls, MainQueueHop,
    ::testing::Values(HopCase{"Dialog",
                              [](Ui &ui) {
                                  ui.presentDialog(
                                      Dialog{"Hey There!", {}, DialogForm::Alert, Presenter::TopMost, {}, {}},
                                      [](const DialogAnswer &) {}, [] {});
                              },
                              {"dialog:Hey There!"}},
                      HopCase{"Screen",
                              [](Ui &ui) { ui.presentScreen(std::make_shared<EmptyScreen>(), Presenter::TopMost); },
                              {"screen"}},
                      HopCase{"ProgressThenBrowserInOrder",
                              [](Ui &ui) {
                                  ui.showProgress("Loading");
                                  ui.dismissProgress();
                                  ui.openBrowser("https://x/");
                              },
                              {"progress:Loading", "dismissProgress", "browser:https://x/"}},
                      HopCase{"Hint",
                              [](Ui &ui) {
                                  ui.showGestureHint("hold", {1, 2}, {3, 4});
                              },
                              {"hint:hold"}}),
    [](const auto &info) { return std::string(info.param.name); });

// "Could not show" travels back through the hop, so a body on a store thread still hears of it.
TEST(MainQueueHop, ReportsADialogThatCannotBeShown) {
    ScriptedUi drawing;
    drawing.refusing = true;
    FakeQueue mainQueue;
    MainQueueUi ui(drawing, mainQueue, [] { return false; });
    int notShown = 0;
    ui.presentDialog(
        Dialog{}, [](const DialogAnswer &) {}, [&] { ++notShown; });
    EXPECT_EQ(notShown, 0);
    mainQueue.drain();
    EXPECT_EQ(notShown, 1);
}

} // namespace
} // namespace qv
