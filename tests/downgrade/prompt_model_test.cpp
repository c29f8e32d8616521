// The prompts' buttons for each item, setting, idiom and form, and where each answer goes.
#include "downgrade/prompt_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/scripted_ui.h"

namespace qv {
namespace {

using Titles = std::vector<std::string>;

struct StatePromptCase {
    const char *name;
    bool alertControllers;
    bool tablet;
    bool installedOrUpdatable;
    bool proxiesKnowVersions;
    DialogForm form;
    Titles titles;
};

class StatePrompt : public ::testing::TestWithParam<StatePromptCase> {};

TEST_P(StatePrompt, OffersTheButtonsTheItemAllows) {
    const auto &c = GetParam();
    ScriptedUi ui;
    ui.alertControllers = c.alertControllers;
    ui.tablet = c.tablet;
    presentPrompt(ui, statePrompt(c.installedOrUpdatable, c.proxiesKnowVersions, ui), {});
    ASSERT_EQ(ui.dialogs.size(), 1U);
    EXPECT_EQ(ui.dialogs[0].form, c.form);
    EXPECT_EQ(ui.dialogs[0].presenter, Presenter::KeyWindowRoot);
    EXPECT_EQ(ui.titles(), c.titles);
    EXPECT_EQ(ui.dialogs[0].message.has_value(), c.alertControllers);
}

INSTANTIATE_TEST_SUITE_P(
    Items, StatePrompt,
    ::testing::Values(
        StatePromptCase{"InstalledOnPhone",
                        true,
                        false,
                        true,
                        true,
                        DialogForm::ActionSheet,
                        {"Continue", "Downgrade", "Block All Updates", "Downgrade To Previous", "Cancel"}},
        StatePromptCase{"InstalledOnTablet",
                        true,
                        true,
                        true,
                        true,
                        DialogForm::Alert,
                        {"Continue", "Downgrade", "Block All Updates", "Downgrade To Previous", "Cancel"}},
        StatePromptCase{
            "NotInstalled", true, false, false, true, DialogForm::ActionSheet, {"Continue", "Downgrade", "Cancel"}},
        StatePromptCase{"ProxiesWithoutVersions",
                        true,
                        false,
                        true,
                        false,
                        DialogForm::ActionSheet,
                        {"Continue", "Downgrade", "Block All Updates", "Cancel"}},
        StatePromptCase{"LegacySheetNeverBlocks",
                        false,
                        false,
                        true,
                        true,
                        DialogForm::LegacyActionSheet,
                        {"Cancel", "Continue", "Downgrade", "Downgrade To Previous"}},
        StatePromptCase{"LegacySheetNotInstalled",
                        false,
                        true,
                        false,
                        true,
                        DialogForm::LegacyActionSheet,
                        {"Cancel", "Continue", "Downgrade"}}),
    [](const auto &info) { return std::string(info.param.name); });

struct FlagPromptCase {
    const char *name;
    FlagPromptButtons buttons;
    bool blockerDisabled;
    Titles titles;
};

class FlagPrompt : public ::testing::TestWithParam<FlagPromptCase> {};

TEST_P(FlagPrompt, ShowsTheFlaggedButtonsInOrder) {
    const auto &c = GetParam();
    ScriptedUi ui;
    ui.alertControllers = false; // the flag prompt does not ask
    presentPrompt(ui, flagPrompt(c.buttons, c.blockerDisabled, ui), {});
    EXPECT_EQ(ui.titles(), c.titles);
    EXPECT_EQ(ui.dialogs[0].presenter, Presenter::TopMost);
    EXPECT_EQ(ui.dialogs[0].form, DialogForm::ActionSheet);
}

INSTANTIATE_TEST_SUITE_P(
    Flags, FlagPrompt,
    ::testing::Values(FlagPromptCase{"Everything",
                                     {true, true, true, true},
                                     false,
                                     {"Continue", "Downgrade", "Block All Updates", "Available Tweaks", "Cancel"}},
                      FlagPromptCase{"BlockerOffHidesBlocking",
                                     {true, true, true, true},
                                     true,
                                     {"Continue", "Downgrade", "Available Tweaks", "Cancel"}},
                      FlagPromptCase{"PurchaseWithoutCompletion", {false, false, false, false}, false, {"Downgrade"}},
                      FlagPromptCase{"OfferTapWithoutCompletion",
                                     {false, true, true, true},
                                     false,
                                     {"Downgrade", "Block All Updates", "Available Tweaks", "Cancel"}}),
    [](const auto &info) { return std::string(info.param.name); });

struct AnswerCase {
    const char *name;
    bool alertControllers;
    const char *tapped;             // nullptr: the prompt cannot be shown
    std::vector<std::string> heard; // what the handlers were told, in order
    std::size_t delays;             // answers held back for the sheet's dismissal
};

class PromptAnswer : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(PromptAnswer, ReachesTheRightHandler) {
    const auto &c = GetParam();
    ScriptedUi ui;
    ui.alertControllers = c.alertControllers;
    std::vector<std::string> heard;
    PromptHandlers handlers;
    handlers.choice = [&](DowngradeChoice choice) { heard.push_back(std::to_string(static_cast<int>(choice))); };
    handlers.blockAllUpdates = [&] { heard.emplace_back("block"); };
    handlers.showTweaks = [&] { heard.emplace_back("tweaks"); };
    ui.refusing = c.tapped == nullptr;
    presentPrompt(ui, statePrompt(true, true, ui), handlers);
    if (c.tapped != nullptr) {
        ASSERT_TRUE(ui.tap(c.tapped));
    }
    EXPECT_EQ(ui.delays.size(), c.delays);
    ui.runDelayed();
    EXPECT_EQ(heard, c.heard);
}

INSTANTIATE_TEST_SUITE_P(Buttons, PromptAnswer,
                         ::testing::Values(AnswerCase{"Continue", true, "Continue", {"0"}, 0},
                                           AnswerCase{"Downgrade", true, "Downgrade", {"1"}, 0},
                                           AnswerCase{"Previous", true, "Downgrade To Previous", {"2"}, 0},
                                           AnswerCase{"Cancel", true, "Cancel", {"3"}, 0},
                                           AnswerCase{
                                               "BlockingCompletesNothing", true, "Block All Updates", {"block"}, 0},
                                           AnswerCase{"SheetCancelsAtOnce", false, "Cancel", {"3"}, 0},
                                           AnswerCase{"SheetAnswersLater", false, "Downgrade", {"1"}, 1},
                                           AnswerCase{"NotShownContinues", true, nullptr, {"0"}, 0},
                                           AnswerCase{"SheetNotShownContinues", false, nullptr, {"0"}, 0}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(DowngradeChoiceNumbers, OnlyThePromptsNumbersAreChoices) {
    for (const DowngradeChoice choice : {DowngradeChoice::Continue, DowngradeChoice::Downgrade,
                                         DowngradeChoice::DowngradeToPrevious, DowngradeChoice::Cancel}) {
        EXPECT_EQ(downgradeChoiceFrom(static_cast<int>(choice)), choice);
    }
    for (const int other : {-1, 4, 7}) {
        EXPECT_EQ(downgradeChoiceFrom(other), std::nullopt) << other;
    }
}

} // namespace
} // namespace qv
