// Binding bodies to rows: which bodies the compiler refuses for a row, and where a binding table puts the rest.
#include "core/hook_binding.h"

#include <gtest/gtest.h>

#include <array>

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

template <HookBody Body, auto Function>
concept BindsAsReplacement = requires {
    replacement<Body, Function>(origSlot);
};
template <HookBody Body, auto Function>
concept BindsAsReplacementWithoutOrig = requires {
    replacement<Body, Function>();
};
template <HookBody Body, auto Function>
concept BindsAsAddition = requires {
    addition<Body, Function>();
};
template <HookBody Body, auto Function>
concept BindsAsAdditionWithOrig = requires {
    addition<Body, Function>(origSlot);
};

static_assert(BindsAsReplacement<HookBody::PurchaseManagerInit, oneArgument>);
static_assert(!BindsAsReplacement<HookBody::PurchaseManagerInit, noArguments>);
static_assert(!BindsAsReplacement<HookBody::PurchaseManagerInit, threeArguments>);
static_assert(!BindsAsReplacement<HookBody::PurchaseManagerInit, receiverOnly>);
static_assert(!BindsAsReplacementWithoutOrig<HookBody::PurchaseManagerInit, oneArgument>);
static_assert(!BindsAsAddition<HookBody::PurchaseManagerInit, oneArgument>);
static_assert(BindsAsReplacement<HookBody::StoreFetch, threeArguments>);

static_assert(BindsAsAddition<HookBody::OfferViewLibraryItem, noArguments>);
static_assert(!BindsAsAddition<HookBody::OfferViewLibraryItem, oneArgument>);
static_assert(!BindsAsAdditionWithOrig<HookBody::OfferViewLibraryItem, noArguments>);
static_assert(!BindsAsReplacement<HookBody::OfferViewLibraryItem, noArguments>);

constexpr std::array kTable{
    replacement<HookBody::PurchaseManagerInit, oneArgument>(origSlot),
    addition<HookBody::OfferViewLibraryItem, noArguments>(),
    replacement<HookBody::StoreFetch, threeArguments>(otherOrigSlot),
};

static_assert(bindsExactly(kTable, std::array{HookBody::StoreFetch, HookBody::PurchaseManagerInit,
                                              HookBody::OfferViewLibraryItem}));
static_assert(!bindsExactly(kTable, std::array{HookBody::PurchaseManagerInit, HookBody::OfferViewLibraryItem}));
static_assert(!bindsExactly(kTable, std::array{HookBody::PurchaseManagerInit, HookBody::OfferViewLibraryItem,
                                               HookBody::StoreFetch, HookBody::StoreInit}));
static_assert(!bindsExactly(kTable, std::array{HookBody::PurchaseManagerInit, HookBody::OfferViewLibraryItem,
                                               HookBody::StoreInit}));
static_assert(!bindsExactly(std::array{kTable[0], kTable[0], kTable[1]},
                            std::array{HookBody::PurchaseManagerInit, HookBody::OfferViewLibraryItem,
                                       HookBody::StoreFetch}));

TEST(HookBodies, BindPutsEachBodyUnderItsRowWithItsOwnOrigSlot) {
    HookBodies bodies;
    bodies.bind(kTable);
    EXPECT_EQ(bodies[HookBody::PurchaseManagerInit].implementation,
              reinterpret_cast<MethodImplementation>(oneArgument));
    EXPECT_EQ(bodies[HookBody::PurchaseManagerInit].orig, &origSlot);
    EXPECT_EQ(bodies[HookBody::OfferViewLibraryItem].implementation,
              reinterpret_cast<MethodImplementation>(noArguments));
    EXPECT_EQ(bodies[HookBody::OfferViewLibraryItem].orig, nullptr);
    EXPECT_EQ(bodies[HookBody::StoreFetch].orig, &otherOrigSlot);
    EXPECT_EQ(bodies[HookBody::StoreInit].implementation, nullptr);
}

} // namespace
} // namespace qv
