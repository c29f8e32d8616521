// The trace a swallowed fault leaves: each distinct exception is written to the device log once, through the
// runtime port, so a fault inside the host is found without the log filling up when it repeats.
#pragma once

#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/runtime.h"

namespace qv {

class FaultLog {
  public:
    // At most this many distinct faults are written; past it, a repeat could not be told from a new one anyway.
    static constexpr std::size_t kMostFaultsWritten = 64;

    explicit FaultLog(Runtime &runtime) : runtime_(runtime) {}

    // An exception that was caught and dropped at the edge: its name (the exception's class or kind) and reason.
    void swallowed(const std::string &name, const std::string &reason);

  private:
    Runtime &runtime_;
    std::mutex mutex_;
    std::set<std::pair<std::string, std::string>> written_;
};

} // namespace qv
