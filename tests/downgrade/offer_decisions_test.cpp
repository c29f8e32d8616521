// The offer hooks' decisions: long-press actions, when a store action prompts, answers and the hint.
#include "downgrade/offer_decisions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/scripted_ui.h"
#include "service/buy_parameters.h"
#include "store/purchase_intercept.h"
#include "store/text_purchase.h"

namespace qv {
namespace {

TEST(LongPress, OnlyTheTwoOfferActionsAttachOne) {
    EXPECT_TRUE(actionAttachesLongPress("_buttonAction:"));
    EXPECT_TRUE(actionAttachesLongPress("_itemOfferConfirmAction:"));
    for (const char *other : {"_buttonAction", "buttonAction:", "_itemOfferConfirmAction:x", "", "tap:"}) {
        EXPECT_FALSE(actionAttachesLongPress(other)) << other;
    }
}

struct DecisionCase {
    const char *name;
    OfferSettings settings;
    bool installed;
    bool supported;
    OfferSender sender;
    OfferDecision expected;
};

class OfferAction : public ::testing::TestWithParam<DecisionCase> {};

TEST_P(OfferAction, PromptsCallsOrigOrWaits) {
    const auto &c = GetParam();
    EXPECT_EQ(decideOfferAction(c.settings, c.installed, c.supported, c.sender), c.expected);
}

constexpr OfferSender kTap{false, 0};
constexpr OfferSender kHoldBegan{true, 1};
constexpr OfferSender kHoldEnded{true, 3};

INSTANTIATE_TEST_SUITE_P(
    Rules, OfferAction,
    ::testing::Values(
        DecisionCase{"FeatureOff", {false, true}, true, true, kHoldBegan, OfferDecision::CallOrig},
        DecisionCase{"InstalledTapWithLongPress", {true, true}, true, true, kTap, OfferDecision::CallOrig},
        DecisionCase{"InstalledHoldBegan", {true, true}, true, true, kHoldBegan, OfferDecision::Prompt},
        DecisionCase{"InstalledHoldEnded", {true, true}, true, true, kHoldEnded, OfferDecision::Nothing},
        DecisionCase{"NotInstalledTapPrompts", {true, true}, false, true, kTap, OfferDecision::Prompt},
        DecisionCase{"LongPressOffTapPrompts", {true, false}, true, true, kTap, OfferDecision::Prompt},
        DecisionCase{"Unsupported", {true, false}, true, false, kTap, OfferDecision::CallOrig},
        DecisionCase{"UnsupportedHoldBegan", {true, true}, true, false, kHoldBegan, OfferDecision::CallOrig}),
    [](const auto &info) { return std::string(info.param.name); });

struct AnswerRig {
    ScriptedUi ui;
    PendingDowngrades pending;
    std::vector<std::string> store;
    bool storeTakesPurchases = true;
    DowngradeFlows flows{ui,
                         [this](const std::string &id) {
                             return std::make_shared<VersionsListModel>(
                                 ui,
                                 [](const std::string &, auto done) {
                                     done(KnownVersions(std::vector<QVVersion>{{"1.0", "700"}}));
                                 },
                                 id);
                         },
                         [] { return false; }};

    OfferItem item(bool installed) {
        OfferItem offer;
        offer.itemIdentifier = "42";
        offer.installed = installed;
        offer.callOrig = [this] { store.emplace_back("orig"); };
        offer.startPurchases = [this](const std::optional<std::string> &version) {
            store.push_back("start " + version.value_or("(none)"));
            return storeTakesPurchases;
        };
        offer.installedVersion = [] { return std::optional<std::int64_t>(815000); };
        return offer;
    }
};

struct AnswerCase {
    const char *name;
    DowngradeChoice answer;
    bool installed;
    bool storeTakesPurchases;
    bool chooseFromList;
    std::vector<std::string> store;
    std::optional<std::string> pending;
};

class OfferAnswer : public ::testing::TestWithParam<AnswerCase> {};

TEST_P(OfferAnswer, CarriesTheChoiceToTheStore) {
    const auto &c = GetParam();
    AnswerRig rig;
    rig.storeTakesPurchases = c.storeTakesPurchases;
    handleOfferAnswer(c.answer, rig.item(c.installed), rig.pending, rig.flows);
    if (c.chooseFromList) {
        auto list = rig.ui.lastScreen<VersionsListModel>();
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(rig.ui.screenPresenters.back(), Presenter::KeyWindowRoot);
        list->appeared();
        list->chooseRow(0);
    }
    EXPECT_EQ(rig.store, c.store);
    EXPECT_EQ(rig.pending.find("42"), c.pending);
}

using enum DowngradeChoice;

INSTANTIATE_TEST_SUITE_P(
    Answers, OfferAnswer,
    ::testing::Values(
        AnswerCase{"Continue", Continue, true, true, false, {"orig"}, std::nullopt},
        AnswerCase{"ChosenVersionInstalled", Downgrade, true, true, true, {"start 700"}, "700"},
        AnswerCase{"ChosenVersionNotInstalled", Downgrade, false, true, true, {"orig"}, "700"},
        AnswerCase{"ChosenVersionRefused", Downgrade, true, false, true, {"start 700"}, std::nullopt},
        AnswerCase{"PreviousInstalled", DowngradeToPrevious, true, true, false, {"start 815000"}, "previous"},
        AnswerCase{"PreviousRefused", DowngradeToPrevious, true, false, false, {"start 815000"}, std::nullopt},
        AnswerCase{"PreviousNotInstalled", DowngradeToPrevious, false, true, false, {"orig"}, "previous"},
        AnswerCase{"Cancel", Cancel, true, true, false, {}, std::nullopt}),
    [](const auto &info) { return std::string(info.param.name); });

struct ProxyCase {
    const char *name;
    ApplicationProxyFacts proxy;
    std::optional<std::int64_t> expected;
};

class InstalledVersion : public ::testing::TestWithParam<ProxyCase> {};

TEST_P(InstalledVersion, ExternalIdThenBundleVersionThenNothing) {
    EXPECT_EQ(versionIdentifierForAppWithID(GetParam().proxy), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Proxies, InstalledVersion,
                         ::testing::Values(ProxyCase{"NoProxy", {false, 5, "6"}, std::nullopt},
                                           ProxyCase{"ExternalId", {true, 815000, "6"}, 815000},
                                           ProxyCase{"BundleVersion", {true, std::nullopt, " 42.1"}, 42},
                                           ProxyCase{"BundleVersionNotANumber", {true, std::nullopt, "b7"}, 0},
                                           ProxyCase{"Neither", {true, std::nullopt, std::nullopt}, std::nullopt}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(HoldHint, ShownOnceForAnInstalledAppWithLongPressOn) {
    EXPECT_TRUE(shouldShowHoldHint(false, true, true));
    EXPECT_FALSE(shouldShowHoldHint(true, true, true));
    EXPECT_FALSE(shouldShowHoldHint(false, false, true));
    EXPECT_FALSE(shouldShowHoldHint(false, true, false));
    const Point touch = holdHintTouchPoint({10, 100, 80, 30}, 44, 20);
    EXPECT_EQ(touch, (Point{50, 44 + 20 + 100 + 30 + 2}));
}

// The older store end to end: the hold prompts, the user picks a version, the store queues its purchase and the
// intercept rewrites it with the chosen version, consuming the entry.
TEST(OfferFlow, HoldPromptListChoiceAndInterceptRewriteTheQueuedPurchase) {
    AnswerRig rig;
    TextPurchaseMaker maker;
    std::vector<std::string> queued;
    OfferItem item = rig.item(true);
    item.startPurchases = [&](const std::optional<std::string> &version) {
        const std::vector<PurchaseHandle> batch{
            maker.purchaseWithBuyParameters(newPurchaseBuyParameters(item.itemIdentifier, version, item.installed))};
        for (const auto &purchase : addPurchasesIntercept(batch, rig.pending, maker)) {
            queued.push_back(purchase->buyParameters());
        }
        return true;
    };
    ASSERT_EQ(decideOfferAction({true, true}, true, true, {true, kGestureStateBegan}), OfferDecision::Prompt);
    PromptHandlers handlers;
    handlers.choice = [&](DowngradeChoice choice) { handleOfferAnswer(choice, item, rig.pending, rig.flows); };
    presentPrompt(rig.ui, statePrompt(true, true, rig.ui), handlers);
    ASSERT_TRUE(rig.ui.tap("Downgrade"));
    auto list = rig.ui.lastScreen<VersionsListModel>();
    ASSERT_NE(list, nullptr);
    list->appeared();
    list->chooseRow(0);
    EXPECT_EQ(queued, std::vector<std::string>{rewrittenPurchaseBuyParameters("42", "700")});
    EXPECT_EQ(rig.pending.find("42"), std::nullopt);
}

// A prompt that could not be shown lets the store's own action run, as "Continue" does.
TEST(OfferFlow, APromptThatCannotBeShownRunsTheStoreAction) {
    AnswerRig rig;
    rig.ui.refusing = true;
    const OfferItem item = rig.item(true);
    PromptHandlers handlers;
    handlers.choice = [&](DowngradeChoice choice) { handleOfferAnswer(choice, item, rig.pending, rig.flows); };
    presentPrompt(rig.ui, statePrompt(true, true, rig.ui), handlers);
    EXPECT_EQ(rig.store, std::vector<std::string>{"orig"});
}

} // namespace
} // namespace qv
