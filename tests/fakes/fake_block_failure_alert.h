// BlockFailureAlert for tests: keeps every failure it was shown.
#pragma once

#include <vector>

#include "platform/block_failure_alert.h"

namespace qv {

class FakeBlockFailureAlert : public BlockFailureAlert {
  public:
    void show(const BlockFailure &failure) override { shown.push_back(failure); }
    std::vector<BlockFailure> shown;
};

} // namespace qv
