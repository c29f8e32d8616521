// The three fixed item-state sets; the values' meanings are the store's business, only membership matters here.
#include "store/item_state.h"

#include <algorithm>
#include <array>

namespace qv {

namespace {

constexpr std::int32_t kStateUpdateAvailable = 44;
constexpr std::int32_t kStateSupportedOnly = 8;
constexpr std::int32_t kStateInstalledA = 12;
constexpr std::int32_t kStateInstalledB = 28;
constexpr std::int32_t kStateInstalledC = 4;

constexpr std::array kSupportedStates{kStateUpdateAvailable, kStateSupportedOnly, kStateInstalledA, kStateInstalledB,
                                      kStateInstalledC};
constexpr std::array kInstalledStates{kStateInstalledA, kStateInstalledB, kStateInstalledC};
constexpr std::array kUpdateAvailableStates{kStateUpdateAvailable};

template <std::size_t N> bool isMember(const std::array<std::int32_t, N> &set, std::int32_t state) {
    return std::find(set.begin(), set.end(), state) != set.end();
}

} // namespace

bool supportedAppState(std::int32_t state) {
    return isMember(kSupportedStates, state);
}
bool installedAppState(std::int32_t state) {
    return isMember(kInstalledStates, state);
}
bool updateAvailableAppState(std::int32_t state) {
    return isMember(kUpdateAvailableStates, state);
}

} // namespace qv
