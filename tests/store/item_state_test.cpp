// Item-state sets: exact membership of the store's state number in each of the three sets.
#include "store/item_state.h"

#include <gtest/gtest.h>

#include <limits>

namespace qv {
namespace {

struct StateCase {
    std::int32_t state;
    bool supported;
    bool installed;
    bool updateAvailable;
};

class ItemState : public ::testing::TestWithParam<StateCase> {};

TEST_P(ItemState, ClassifiesByExactMembership) {
    EXPECT_EQ(supportedAppState(GetParam().state), GetParam().supported);
    EXPECT_EQ(installedAppState(GetParam().state), GetParam().installed);
    EXPECT_EQ(updateAvailableAppState(GetParam().state), GetParam().updateAvailable);
}

INSTANTIATE_TEST_SUITE_P(States, ItemState,
                         ::testing::Values(StateCase{44, true, false, true}, StateCase{8, true, false, false},
                                           StateCase{12, true, true, false}, StateCase{28, true, true, false},
                                           StateCase{4, true, true, false}, StateCase{0, false, false, false},
                                           // Values sharing bits with members are not members.
                                           StateCase{46, false, false, false}, StateCase{60, false, false, false},
                                           StateCase{-44, false, false, false},
                                           StateCase{std::numeric_limits<std::int32_t>::min() + 44, false, false,
                                                     false}));

} // namespace
} // namespace qv
