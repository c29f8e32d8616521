// Classification of the store's item-state numbers: supported, installed, update available.
#pragma once

#include <cstdint>

namespace qv {

// Each takes the low 32 bits of the store's state and answers by exact membership, without bit masking.
bool supportedAppState(std::int32_t state);
bool installedAppState(std::int32_t state);
bool updateAvailableAppState(std::int32_t state);

} // namespace qv
