// Writes each distinct swallowed fault once.
#include "core/fault_log.h"

namespace qv {

void FaultLog::swallowed(const std::string &name, const std::string &reason) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (written_.size() >= kMostFaultsWritten || !written_.emplace(name, reason).second) {
            return;
        }
    }
    runtime_.log("Verdigo caught and dropped " + name + ": " + reason);
}

} // namespace qv
