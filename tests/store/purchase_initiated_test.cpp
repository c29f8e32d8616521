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

struct LeaveCase {
    const char *name;
    const char *tapped;     // prompt button
    bool leaveList;         // then leave the list with its cancel button
    std::size_t handedBack; // calls of the purchase completion, each with the unchanged purchase
};

class PurchaseGoesOnUnchanged : public ::testing::TestWithParam<LeaveCase> {};

TEST_P(PurchaseGoesOnUnchanged, WhenTheUserDoesNotChoose) {
    Rig rig;
    std::size_t calls = 0;
    purchaseInitiated(rig.flows, kPurchase, [&](bool rewritten, const Value &purchase) {
        ++calls;
        EXPECT_FALSE(rewritten);
        EXPECT_EQ(purchase, kPurchase);
    });
    ASSERT_TRUE(rig.ui.tap(GetParam().tapped));
    if (GetParam().leaveList) {
        rig.list()->leave();
    }
    EXPECT_EQ(calls, GetParam().handedBack);
}

INSTANTIATE_TEST_SUITE_P(Paths, PurchaseGoesOnUnchanged,
                         ::testing::Values(LeaveCase{"Continue", "Continue", false, 1},
                                           LeaveCase{"LeavingTheList", "Downgrade", true, 1},
                                           LeaveCase{"ListStillOpen", "Downgrade", false, 0}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(DisplayDowngradeController, SubmitsTheChoiceAndAlwaysCompletesWithOne) {
    Rig rig;
    RecordingPurchasing purchasing;
    purchasing.installed = false;
    std::vector<int> completions;
    displayDowngradeController(rig.flows, purchasing, "42", "com.example.notes",
                               [&](int code) { completions.push_back(code); });
    rig.list()->chooseRow(0);
    EXPECT_EQ(purchasing.submitted, (std::vector<std::string>{"asked:com.example.notes", "42@900"}));
    EXPECT_EQ(completions, std::vector<int>{1});
}

TEST(DisplayDowngradeController, LeavingTheListDoesNothing) {
    Rig rig;
    RecordingPurchasing purchasing;
    int completions = 0;
    displayDowngradeController(rig.flows, purchasing, "42", "com.example.notes", [&](int) { ++completions; });
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
                          {"com.example.notes", [&](int) { ++completions; }, [&] { ++blocked; }, nullptr});
        ASSERT_TRUE(rig.ui.tap(button));
    }
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(blocked, 1);
}

} // namespace
} // namespace qv
