// View-tree and responder-chain searches, and the offer view's library item, over fake trees.
#include "core/library_item.h"
#include "core/view_search.h"
#include "fakes/fake_view_tree.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace qv {
namespace {

// root
//  ├─ a            (view)
//  │   └─ a1       (view)
//  │       └─ a11  (button)   three levels down
//  └─ b            (view)
//      └─ b1       (button)   two levels down, found first at depth 2 only after a's subtree
FakeTree sampleTree() {
    FakeTree tree;
    tree.subviews = {{"root", {"a", "b"}}, {"a", {"a1"}}, {"a1", {"a11"}}, {"b", {"b1"}}};
    tree.kinds = {{"a11", "button"}, {"b1", "button"}, {"root", "button"}};
    return tree;
}

struct SubviewCase {
    const char *name;
    std::int64_t depth;
    const char *cls;
    const char *expected; // nullptr: nothing found
};

class SubviewSearch : public ::testing::TestWithParam<SubviewCase> {};

TEST_P(SubviewSearch, FindsTheFirstMatchWithinTheLimit) {
    FakeTree tree = sampleTree();
    tree.kinds["a"] = GetParam().name == std::string("DirectChildBeatsDeeperMatch") ? "button" : "view";
    const char *found = firstSubviewOfClass(tree, "root", std::string(GetParam().cls), GetParam().depth);
    EXPECT_STREQ(found, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Limits, SubviewSearch,
                         ::testing::Values(SubviewCase{"DepthOneTestsOnlyChildren", 1, "button", nullptr},
                                           SubviewCase{"DepthTwoReachesGrandchildren", 2, "button", "b1"},
                                           SubviewCase{"DepthThreeGoesDepthFirstInOrder", 3, "button", "a11"},
                                           SubviewCase{"DirectChildBeatsDeeperMatch", 3, "button", "a"},
                                           SubviewCase{"NoSuchKind", 5, "label", nullptr}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(SubviewSearch, NonPositiveLimitsReturnNothingWithoutReadingSubviews) {
    for (const std::int64_t depth : {0, -1}) {
        FakeTree tree = sampleTree();
        EXPECT_EQ(firstSubviewOfClass(tree, "root", std::string("button"), depth), nullptr);
        EXPECT_TRUE(tree.childrenAskedOf.empty());
    }
}

TEST(SubviewSearch, RepeatsTheOuterLoopWithSmallerLimits) {
    FakeTree tree = sampleTree();
    EXPECT_EQ(firstSubviewOfClass(tree, "root", std::string("label"), 3), nullptr);
    // The first pass under root goes two levels down; the second pass (limit 2 at root) revisits a and b.
    const std::vector<std::string> expected{"root", "a", "a1", "b", "b1", "a", "b"};
    EXPECT_EQ(tree.childrenAskedOf, expected);
}

// chain: button -> cell -> table -> controller -> window -> application
FakeTree sampleChain() {
    FakeTree tree;
    tree.next = {{"button", "cell"},
                 {"cell", "table"},
                 {"table", "controller"},
                 {"controller", "window"},
                 {"window", "application"}};
    tree.kinds = {{"button", "cell"},           {"cell", "cell"},     {"table", "table"},
                  {"controller", "controller"}, {"window", "window"}, {"application", "application"}};
    return tree;
}

struct ResponderCase {
    const char *name;
    const char *start;
    const char *cls;
    std::int64_t depth;
    const char *expected;
};

class ResponderSearch : public ::testing::TestWithParam<ResponderCase> {};

TEST_P(ResponderSearch, FindsTheFirstResponderAboveTheReceiver) {
    FakeTree tree = sampleChain();
    const auto &param = GetParam();
    EXPECT_STREQ(firstResponderOfClass(tree, param.start, std::string(param.cls), param.depth), param.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Chains, ResponderSearch,
    ::testing::Values(ResponderCase{"ReceiverItselfIsNeverTested", "button", "cell", 3, "cell"},
                      ResponderCase{"DepthOneTestsOnlyNextResponder", "button", "table", 1, nullptr},
                      ResponderCase{"DepthTwoReachesSecond", "button", "table", 2, "table"},
                      ResponderCase{"ZeroLimitFindsNothing", "button", "cell", 0, nullptr},
                      ResponderCase{"NegativeLimitRunsToTheEndOfTheChain", "button", "application", -1, "application"},
                      ResponderCase{"EndedChainFindsNothing", "application", "cell", 3, nullptr}),
    [](const auto &info) { return std::string(info.param.name); });

struct ControllerCase {
    const char *name;
    const char *start;
    const char *expected;
};

class ControllerSearch : public ::testing::TestWithParam<ControllerCase> {};

TEST_P(ControllerSearch, ClimbsThroughViewsOnly) {
    FakeTree tree = sampleChain();
    tree.next["orphan"] = "application";
    EXPECT_STREQ(nearestViewController(tree, GetParam().start), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Chains, ControllerSearch,
                         ::testing::Values(ControllerCase{"ThroughSeveralViews", "button", "controller"},
                                           ControllerCase{"StopsAtANonView", "orphan", nullptr},
                                           ControllerCase{"ChainEndsAboveController", "window", nullptr}),
                         [](const auto &info) { return std::string(info.param.name); });

struct LibraryItemCase {
    const char *name;
    bool withContainer;
    OfferDelegateKind kind;
    bool lockupPresent;
    const char *expected;
};

class LibraryItem : public ::testing::TestWithParam<LibraryItemCase> {};

TEST_P(LibraryItem, PrefersTheLockupThenTheContainer) {
    const auto &param = GetParam();
    FakeStore store;
    store.container = param.withContainer ? "container" : nullptr;
    store.delegate = "delegate";
    store.kind = param.kind;
    store.members = {{"container._personalizationItems", "containerItems"},
                     {"containerItems.any", "containerItem"},
                     {"lockup.items.first", "lockupItem"}};
    if (param.lockupPresent) {
        store.members["delegate._lockupElement"] = "lockup";
        store.members["delegate._lockup"] = "lockup";
    }
    EXPECT_STREQ(libraryItemForOfferView(store, "offerView"), param.expected);
    EXPECT_EQ(store.askedDepth, kDocumentContainerSearchDepth);
}

INSTANTIATE_TEST_SUITE_P(
    Surroundings, LibraryItem,
    ::testing::Values(
        LibraryItemCase{"HorizontalLockup", true, OfferDelegateKind::HorizontalLockupView, true, "lockupItem"},
        LibraryItemCase{"ProductLockupCell", false, OfferDelegateKind::ProductLockupCell, true, "lockupItem"},
        LibraryItemCase{"CellWithoutLockupFallsBack", true, OfferDelegateKind::ProductLockupCell, false,
                        "containerItem"},
        LibraryItemCase{"OtherDelegateUsesContainer", true, OfferDelegateKind::Other, true, "containerItem"},
        LibraryItemCase{"NoContainerNoLockup", false, OfferDelegateKind::Other, true, nullptr}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace qv
