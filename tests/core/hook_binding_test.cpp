// Binding bodies to rows: which bodies the compiler refuses for a row, where bindings put the rest, and what a
// build that binds a row twice or never is told.
#include "core/hook_binding.h"

#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace qv {
namespace {

struct Object {};
struct Selector {};

void *noArguments(Object * /*self*/, Selector * /*cmd*/) {
    return nullptr;
}
void *oneArgument(Object * /*self*/, Selector * /*cmd*/, Object * /*argument*/) {
    return nullptr;
}
void *threeArguments(Object * /*self*/, Selector * /*cmd*/, Object * /*first*/, Object * /*second*/,
                     Object * /*third*/) {
    return nullptr;
}
void *receiverOnly(Object * /*self*/) {
    return nullptr;
}

MethodImplementation origSlot = nullptr;
MethodImplementation otherOrigSlot = nullptr;

constexpr std::size_t kManagerInit = rowOf("SSPurchaseManager", "initWithManagerIdentifier:");
constexpr std::size_t kStoreFetch = rowOf("AppStoreKit.Store", "fetch:::");
constexpr std::size_t kStoreInit = rowOf("AppStoreKit.Store", "init");
constexpr std::size_t kLibraryItem = rowOf("SKUIOfferView", "qv_libraryItem");

template <std::size_t Row, auto Function>
concept BindsAsReplacement = requires {
    replacement<Row, Function>(origSlot);
};
template <std::size_t Row, auto Function>
concept BindsAsReplacementWithoutOrig = requires {
    replacement<Row, Function>();
};
template <std::size_t Row, auto Function>
concept BindsAsAddition = requires {
    addition<Row, Function>();
};
template <std::size_t Row, auto Function>
concept BindsAsAdditionWithOrig = requires {
    addition<Row, Function>(origSlot);
};

static_assert(BindsAsReplacement<kManagerInit, oneArgument>);
static_assert(!BindsAsReplacement<kManagerInit, noArguments>);
static_assert(!BindsAsReplacement<kManagerInit, threeArguments>);
static_assert(!BindsAsReplacement<kManagerInit, receiverOnly>);
static_assert(!BindsAsReplacementWithoutOrig<kManagerInit, oneArgument>);
static_assert(!BindsAsAddition<kManagerInit, oneArgument>);
static_assert(BindsAsReplacement<kStoreFetch, threeArguments>);
static_assert(!BindsAsReplacement<kHookRowCount, oneArgument>);

static_assert(BindsAsAddition<kLibraryItem, noArguments>);
static_assert(!BindsAsAddition<kLibraryItem, oneArgument>);
static_assert(!BindsAsAdditionWithOrig<kLibraryItem, noArguments>);
static_assert(!BindsAsReplacement<kLibraryItem, noArguments>);
static_assert(!BindsAsAddition<kHookRowCount, noArguments>);

// Rows are found by what they hook, whichever class shares the selector.
static_assert(hookRow(rowOf("AppStore.AccountViewController", "viewDidAppear:")).number == 66);
static_assert(hookRow(rowOf("AppStore.UpdatesViewController", "viewDidAppear:")).number == 72);

constexpr std::array kTable{
    replacement<kManagerInit, oneArgument>(origSlot),
    addition<kLibraryItem, noArguments>(),
    replacement<kStoreFetch, threeArguments>(otherOrigSlot),
};

std::vector<std::string> bind(HookBodies &bodies, std::initializer_list<BodyBinding> entries) {
    return bodies.bind(std::span(entries.begin(), entries.size()));
}

TEST(HookBodies, BindPutsEachBodyUnderItsRowWithItsOwnOrigSlot) {
    HookBodies bodies;
    (void)bodies.bind(kTable);
    EXPECT_EQ(bodies[hookRow(kManagerInit)].implementation, reinterpret_cast<MethodImplementation>(oneArgument));
    EXPECT_EQ(bodies[hookRow(kManagerInit)].orig, &origSlot);
    EXPECT_EQ(bodies[hookRow(kLibraryItem)].implementation, reinterpret_cast<MethodImplementation>(noArguments));
    EXPECT_EQ(bodies[hookRow(kLibraryItem)].orig, nullptr);
    EXPECT_EQ(bodies[hookRow(kStoreFetch)].orig, &otherOrigSlot);
    EXPECT_EQ(bodies[hookRow(kStoreInit)].implementation, nullptr);
}

// Bindings gathered from every file of bodies: each row's problem is named, and a second body never replaces the
// first.
TEST(HookBodies, BindNamesRowsBoundTwiceOrNeverAndEntriesForNoRow) {
    std::vector<BodyBinding> everyRow;
    for (std::size_t index = 0; index < kHookRowCount; ++index) {
        everyRow.push_back({index, implementationOf<noArguments>, &origSlot});
    }
    HookBodies complete;
    EXPECT_EQ(complete.bind(everyRow), std::vector<std::string>{});

    HookBodies faulty;
    const auto problems = bind(faulty, {kTable[0], replacement<kManagerInit, oneArgument>(otherOrigSlot),
                                        BodyBinding{kHookRowCount, implementationOf<noArguments>, nullptr}});
    EXPECT_EQ(faulty[hookRow(kManagerInit)].orig, &origSlot);
    ASSERT_EQ(problems.size(), 2 + kHookRowCount - 1);
    EXPECT_EQ(problems[0], "hook bodies: row 9 is bound twice; the first body stays");
    EXPECT_EQ(problems[1], "hook bodies: a binding names row position 73, which the table does not have");
    EXPECT_EQ(problems[2], "hook bodies: no body bound for hook row 1");
}

} // namespace
} // namespace qv
