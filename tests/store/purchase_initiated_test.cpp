// Purchase-initiated handling end to end through the scripted user: prompt, versions list, rewrite, submission.
#include "store/purchase_initiated.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/json.h"
#include "fakes/scripted_ui.h"

namespace qv {
namespace {

struct QueryCase {
    const char *name;
    const char *buyParameters;
    const char *expected;
};

class AskForVersion : public ::testing::TestWithParam<QueryCase> {};

TEST_P(AskForVersion, RewritesTheFirstItemInPlaceOrAppends) {
    EXPECT_EQ(buyParametersAskingForVersion(GetParam().buyParameters, "456"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Queries, AskForVersion,
    ::testing::Values(
        QueryCase{"InPlace", "productType=C&appExtVrsId=123&price=0", "productType=C&appExtVrsId=456&price=0"},
        QueryCase{"Appended", "productType=C&price=0", "productType=C&price=0&appExtVrsId=456"},
        QueryCase{"OnlyTheFirst", "appExtVrsId=1&appExtVrsId=2", "appExtVrsId=456&appExtVrsId=2"},
        QueryCase{"NameIsCaseSensitive", "APPEXTVRSID=1", "APPEXTVRSID=1&appExtVrsId=456"},
        QueryCase{"Empty", "", "appExtVrsId=456"},
        QueryCase{"ItemsWithoutValueKept", "flag&a=&&b=1", "flag&a=&&b=1&appExtVrsId=456"},
        QueryCase{"EscapesDecodedThenReencoded", "a=%41%2B%26b&c%3Dd=x=y", "a=A+%26b&c%3Dd=x=y&appExtVrsId=456"},
        QueryCase{"SpacesAndUnicodeEncoded", "n=a b&u=\xC3\xA9", "n=a%20b&u=%C3%A9&appExtVrsId=456"},
        QueryCase{"BrokenEscapeKept", "a=%zz&b=%4", "a=%25zz&b=%254&appExtVrsId=456"}),
    [](const auto &info) { return std::string(info.param.name); });

// Versions lists whose versions come from a table instead of the service.
struct Rig {
    ScriptedUi ui;
    std::vector<std::string> listedFor;
    bool blockerDisabled = false;
    DowngradeFlows flows{ui,
                         [this](const std::string &id) {
                             listedFor.push_back(id);
                             return std::make_shared<VersionsListModel>(
                                 ui,
                                 [](const std::string &, auto done) {
                                     done(KnownVersions(std::vector<QVVersion>{{"2.0", "900"}, {"1.0", "800"}}));
                                 },
                                 id);
                         },
                         [this] { return blockerDisabled; }};

    std::shared_ptr<VersionsListModel> list() {
        auto model = ui.lastScreen<VersionsListModel>();
        model->appeared();
        return model;
    }
};

class RecordingPurchasing : public StorePurchasing {
  public:
    bool installed = true;
    std::vector<std::string> submitted;
    bool appInstalled(const std::string &bundleIdentifier) override {
        submitted.push_back("asked:" + bundleIdentifier);
        return installed;
    }
    void submitPurchases(const std::string &storeIdentifier, const std::string &version, bool isInstalled) override {
        submitted.push_back(storeIdentifier + "@" + version + (isInstalled ? " installed" : ""));
    }
};

const Value kPurchase =
    *parseJson(R"({"bundleId":"com.example.notes","adamId":284882215,"buyParams":"productType=C&appExtVrsId=1"})");

TEST(PurchaseInitiated, DowngradeRewritesACopyWithTheChosenVersion) {
    Rig rig;
    std::vector<std::pair<bool, Value>> handedBack;
    purchaseInitiated(rig.flows, kPurchase,
                      [&](bool rewritten, Value purchase) { handedBack.emplace_back(rewritten, std::move(purchase)); });
    EXPECT_EQ(rig.ui.titles(), (std::vector<std::string>{"Continue", "Downgrade"}));
    ASSERT_TRUE(rig.ui.tap("Downgrade"));
    EXPECT_EQ(rig.listedFor, std::vector<std::string>{"284882215"});
    EXPECT_EQ(rig.ui.screenPresenters.back(), Presenter::TopMost);
    rig.list()->chooseRow(1);
    ASSERT_EQ(handedBack.size(), 1U);
    EXPECT_TRUE(handedBack[0].first);
    EXPECT_EQ(*handedBack[0].second["buyParams"].asString(), "productType=C&appExtVrsId=800");
    EXPECT_EQ(handedBack[0].second["bundleId"], kPurchase["bundleId"]);
    EXPECT_EQ(rig.ui.dismissed.size(), 1U);
}

// How the purchase's prompt and list end without a choice.
enum class Ending { ListOpen, CancelButton, SwipedAway, PromptNotShown, ListNotShown };

struct LeaveCase {
    const char *name;
    const char *tapped; // prompt button; nullptr when the prompt is never shown
    Ending ending;
    std::size_t handedBack; // calls of the purchase completion, each with the unchanged purchase
};

class PurchaseGoesOnUnchanged : public ::testing::TestWithParam<LeaveCase> {};

TEST_P(PurchaseGoesOnUnchanged, WhenTheUserDoesNotChoose) {
    const LeaveCase &c = GetParam();
    Rig rig;
    rig.ui.refusing = c.ending == Ending::PromptNotShown;
    std::size_t calls = 0;
    purchaseInitiated(rig.flows, kPurchase, [&](bool rewritten, const Value &purchase) {
        ++calls;
        EXPECT_FALSE(rewritten);
        EXPECT_EQ(purchase, kPurchase);
    });
    if (c.tapped != nullptr) {
        rig.ui.refusing = c.ending == Ending::ListNotShown;
        ASSERT_TRUE(rig.ui.tap(c.tapped));
    }
    if (c.ending == Ending::CancelButton) {
        rig.list()->leave();
    } else if (c.ending == Ending::SwipedAway) {
        rig.list()->dismissedByUser();
        rig.list()->dismissedByUser();
    }
    EXPECT_EQ(calls, c.handedBack);
}

INSTANTIATE_TEST_SUITE_P(Paths, PurchaseGoesOnUnchanged,
                         ::testing::Values(LeaveCase{"Continue", "Continue", Ending::ListOpen, 1},
                                           LeaveCase{"LeavingTheList", "Downgrade", Ending::CancelButton, 1},
                                           LeaveCase{"SwipingTheListAway", "Downgrade", Ending::SwipedAway, 1},
                                           LeaveCase{"PromptCannotBeShown", nullptr, Ending::PromptNotShown, 1},
                                           LeaveCase{"ListCannotBeShown", "Downgrade", Ending::ListNotShown, 1},
                                           LeaveCase{"ListStillOpen", "Downgrade", Ending::ListOpen, 0}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(DisplayDowngradeController, SubmitsTheChoiceAndAlwaysCompletesWithOne) {
    Rig rig;
    RecordingPurchasing purchasing;
    purchasing.installed = false;
    std::vector<DowngradeChoice> completions;
    displayDowngradeController(rig.flows, purchasing, "42", "com.example.notes",
                               [&](DowngradeChoice code) { completions.push_back(code); });
    rig.list()->chooseRow(0);
    EXPECT_EQ(purchasing.submitted, (std::vector<std::string>{"asked:com.example.notes", "42@900"}));
    EXPECT_EQ(completions, std::vector<DowngradeChoice>{DowngradeChoice::Downgrade});
}

TEST(DisplayDowngradeController, LeavingTheListDoesNothing) {
    Rig rig;
    RecordingPurchasing purchasing;
    int completions = 0;
    displayDowngradeController(rig.flows, purchasing, "42", "com.example.notes",
                               [&](DowngradeChoice) { ++completions; });
    rig.list()->leave();
    EXPECT_TRUE(purchasing.submitted.empty());
    EXPECT_EQ(completions, 0);
}

TEST(OfferButtonTapped, LooksTheAppUpBehindTheOverlayThenOpensTheList) {
    Rig rig;
    RecordingPurchasing purchasing;
    std::vector<std::string> looked;
    std::function<void(std::string)> answerLookup;
    const StoreIdentifierLookup lookup = [&](const std::string &bundleId, std::function<void(std::string)> done) {
        looked.push_back(bundleId);
        answerLookup = std::move(done);
    };
    offerButtonTapped(rig.flows, purchasing, lookup, {"com.example.notes", nullptr, nullptr, nullptr});
    EXPECT_EQ(rig.ui.titles(),
              (std::vector<std::string>{"Downgrade", "Block All Updates", "Available Tweaks", "Cancel"}));
    ASSERT_TRUE(rig.ui.tap("Downgrade"));
    EXPECT_EQ(looked, std::vector<std::string>{"com.example.notes"});
    EXPECT_EQ(rig.ui.log.back(), "progress:Loading");
    answerLookup("284882215");
    EXPECT_EQ(rig.ui.log.back(), "screen");
    EXPECT_EQ(rig.ui.log[rig.ui.log.size() - 2], "dismissProgress");
    rig.list()->chooseRow(0);
    EXPECT_EQ(purchasing.submitted.back(), "284882215@900 installed");
}

TEST(OfferButtonTapped, CancelAndBlockingDoNotComplete) {
    Rig rig;
    RecordingPurchasing purchasing;
    int completions = 0;
    int blocked = 0;
    for (const char *button : {"Cancel", "Block All Updates"}) {
        offerButtonTapped(rig.flows, purchasing, {},
                          {"com.example.notes", [&](DowngradeChoice) { ++completions; }, [&] { ++blocked; }, nullptr});
        ASSERT_TRUE(rig.ui.tap(button));
    }
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(blocked, 1);
}

TEST(PurchaseMarker, OnlyOurPurchasesGoThroughAndLoseTheMarker) {
    const auto ours = takePurchaseMarker(*parseJson(R"({"customQVParams":false,"buyParams":"a=1"})"));
    EXPECT_TRUE(ours.issuedByUs);
    EXPECT_EQ(ours.purchase, *parseJson(R"({"buyParams":"a=1"})"));
    for (const char *store : {R"({"buyParams":"a=1"})", "null", "[]"}) {
        const Value purchase = *parseJson(store);
        const auto theirs = takePurchaseMarker(purchase);
        EXPECT_FALSE(theirs.issuedByUs) << store;
        EXPECT_EQ(theirs.purchase, purchase);
    }
}

} // namespace
} // namespace qv
