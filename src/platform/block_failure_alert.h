// Port: tells the user that blocking an update failed, with what is needed to report it.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"

namespace qv {

struct BlockFailure {
    std::string itemDescription;        // the item as the platform describes it
    std::optional<std::string> version; // as determined from the item; nothing when it had none
    Value key;                          // the store identifier, or null when none could be determined
};

class BlockFailureAlert {
  public:
    virtual ~BlockFailureAlert() = default;
    virtual void show(const BlockFailure &failure) = 0;
};

} // namespace qv
