// The versions list screen model: loading once, the error alert, choosing, typing an identifier, leaving.
#include "downgrade/versions_list_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/scripted_ui.h"

namespace qv {
namespace {

struct ListRig {
    ScriptedUi ui;
    int loads = 0;
    KnownVersions reply{
        std::vector<QVVersion>{{"2.0", "900"}, {std::nullopt, "800"}, {"0.9", std::nullopt}, {"", "700"}}};
    std::vector<std::optional<std::string>> chosen;
    int cancelled = 0;
    std::shared_ptr<VersionsListModel> model = std::make_shared<VersionsListModel>(
        ui,
        [this](const std::string &, const std::function<void(KnownVersions)> &done) {
            ++loads;
            done(reply);
        },
        "42");

    ListRig() {
        model->setCompletion([this](std::optional<std::string> id) { chosen.push_back(std::move(id)); });
        model->setCancel([this] { ++cancelled; });
    }
};

TEST(VersionsList, LoadsOnFirstAppearanceAndOnRefreshOnly) {
    ListRig rig;
    rig.model->appeared();
    rig.model->appeared();
    EXPECT_EQ(rig.loads, 1);
    rig.model->refresh();
    EXPECT_EQ(rig.loads, 2);
    ASSERT_EQ(rig.model->rows().size(), 4U);
    EXPECT_EQ(rig.model->rows()[1].text, "");
    EXPECT_EQ(rig.model->rows()[1].detailText, "800");
    // A version the service knows only by its identifier can still be chosen.
    EXPECT_EQ(rig.model->rows()[3].text, "Unknown version");
    EXPECT_EQ(rig.model->rows()[3].detailText, "700");
    EXPECT_FALSE(rig.model->refreshing());
}

TEST(VersionsList, AFailedLoadEmptiesTheListAndSaysWhy) {
    ListRig rig;
    rig.reply = fail(ErrorCode::ServiceUnreachable, "could not connect to http://127.0.0.1:8080/");
    rig.model->appeared();
    EXPECT_TRUE(rig.model->rows().empty());
    EXPECT_TRUE(rig.ui.dialogs.empty()); // posted to the main queue, not shown at once
    rig.ui.runDelayed();
    ASSERT_EQ(rig.ui.dialogs.size(), 1U);
    EXPECT_EQ(rig.ui.dialogs[0].title, "Error !");
    EXPECT_EQ(*rig.ui.dialogs[0].message, "Opps we got an error!\ncould not connect to http://127.0.0.1:8080/");
    EXPECT_EQ(rig.ui.titles(), std::vector<std::string>{"Ok"});
}

struct ChoiceCase {
    const char *name;
    bool alertControllers;
    int row;            // -1: type an identifier instead
    const char *button; // in the typing dialog
    const char *typed;
    std::optional<std::string> chosen; // nothing: no choice made
    int cancelled;
};

class VersionsListChoice : public ::testing::TestWithParam<ChoiceCase> {};

TEST_P(VersionsListChoice, HandsTheIdentifierOnOnceAndCloses) {
    const auto &c = GetParam();
    ListRig rig;
    rig.ui.alertControllers = c.alertControllers;
    rig.model->appeared();
    if (c.row >= 0) {
        rig.model->chooseRow(static_cast<std::size_t>(c.row));
    } else {
        rig.model->typeVersion();
        ASSERT_TRUE(rig.ui.tap(c.button, c.typed));
    }
    if (c.chosen) {
        ASSERT_EQ(rig.chosen.size(), 1U);
        EXPECT_EQ(rig.chosen[0], c.chosen);
        EXPECT_EQ(rig.ui.dismissed.size(), 1U);
    } else {
        EXPECT_TRUE(rig.chosen.empty());
        EXPECT_TRUE(rig.ui.dismissed.empty());
    }
    EXPECT_EQ(rig.cancelled, c.cancelled);
}

INSTANTIATE_TEST_SUITE_P(Ways, VersionsListChoice,
                         ::testing::Values(ChoiceCase{"Row", true, 0, nullptr, nullptr, "900", 0},
                                           ChoiceCase{"TypedInAlert", true, -1, "OK", "1551411", "1551411", 0},
                                           ChoiceCase{"EmptyTypedInAlertGoesOn", true, -1, "OK", "", "", 0},
                                           ChoiceCase{"TypedInAlertView", false, -1, "OK", "77", "77", 0},
                                           ChoiceCase{"CancelTypingKeepsTheList", true, -1, "Cancel", "5", std::nullopt,
                                                      0}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(VersionsList, RowWithoutIdentifierHandsOnNothing) {
    ListRig rig;
    rig.model->appeared();
    rig.model->chooseRow(2);
    ASSERT_EQ(rig.chosen.size(), 1U);
    EXPECT_FALSE(rig.chosen[0].has_value());
}

TEST(VersionsList, TypingDialogMatchesTheForm) {
    for (const bool alertControllers : {true, false}) {
        ListRig rig;
        rig.ui.alertControllers = alertControllers;
        rig.model->typeVersion();
        const Dialog &dialog = rig.ui.dialogs.back();
        ASSERT_TRUE(dialog.textField);
        EXPECT_EQ(dialog.textField->confirmNeedsText, !alertControllers);
        EXPECT_EQ(dialog.textField->placeholder, alertControllers ? "i.e 1551411" : "");
        EXPECT_EQ(rig.ui.titles(), alertControllers ? (std::vector<std::string>{"OK", "Cancel"})
                                                    : (std::vector<std::string>{"Cancel", "OK"}));
    }
}

struct EndCase {
    const char *name;
    std::function<void(VersionsListModel &)> end;
    int cancelled;
    std::size_t dismissed; // the screen taken away by the model itself
};

class VersionsListEnd : public ::testing::TestWithParam<EndCase> {};

// However the list ends without a choice, cancel runs once; only its own button has to take the screen away.
TEST_P(VersionsListEnd, EndsOnceWithoutAChoice) {
    ListRig rig;
    rig.model->appeared();
    GetParam().end(*rig.model);
    GetParam().end(*rig.model);
    rig.model->chooseRow(0);
    EXPECT_EQ(rig.cancelled, GetParam().cancelled);
    EXPECT_EQ(rig.ui.dismissed.size(), GetParam().dismissed);
    EXPECT_TRUE(rig.chosen.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Ways, VersionsListEnd,
    ::testing::Values(EndCase{"CancelButton", [](VersionsListModel &list) { list.leave(); }, 1, 1},
                      EndCase{"SwipedAway", [](VersionsListModel &list) { list.dismissedByUser(); }, 1, 0},
                      EndCase{"NeverShown", [](VersionsListModel &list) { list.notShown(); }, 1, 0}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(VersionsList, ChoosingByNameHandsOnTheIdentifier) {
    ListRig rig;
    rig.model->choose("123");
    rig.model->dismissedByUser();
    ASSERT_EQ(rig.chosen.size(), 1U);
    EXPECT_EQ(rig.chosen[0], "123");
    EXPECT_EQ(rig.cancelled, 0);
}

TEST(VersionsList, AReplyAfterTheScreenIsGoneIsDropped) {
    ScriptedUi ui;
    std::function<void(KnownVersions)> late;
    auto model = std::make_shared<VersionsListModel>(
        ui, [&](const std::string &, std::function<void(KnownVersions)> done) { late = std::move(done); }, "42");
    model->appeared();
    model.reset();
    late(fail(ErrorCode::ServiceUnreachable, "late"));
    ui.runDelayed();
    EXPECT_TRUE(ui.dialogs.empty());
}

} // namespace
} // namespace qv
