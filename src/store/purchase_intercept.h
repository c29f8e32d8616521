// The pending-downgrade table and the intercept that rewrites a batch of store purchases before it is queued.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/purchase.h"

namespace qv {

// The process-wide pending-downgrade table: store identifier -> chosen external version identifier or "previous".
// Written on the main thread, consumed on the store's threads; every operation is atomic.
class PendingDowngrades {
  public:
    static PendingDowngrades &shared();

    void set(const std::string &storeIdentifier, const std::string &value);
    std::optional<std::string> find(std::string_view storeIdentifier) const;
    bool erase(std::string_view storeIdentifier);
    // Looks up and removes in one step, so one entry can rewrite one purchase only.
    std::optional<std::string> take(std::string_view storeIdentifier);
    std::map<std::string, std::string, std::less<>> snapshot() const;
    void clear();

  private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string, std::less<>> entries_;
};

// Returns the batch to queue instead of the incoming one: each purchase whose store identifier has a pending
// entry is replaced, at the index of the first equal element, by a fresh purchase with rewritten buy parameters,
// and the entry is consumed. Untouched purchases are passed on as the same objects.
std::vector<PurchaseHandle> addPurchasesIntercept(const std::vector<PurchaseHandle> &purchases,
                                                  PendingDowngrades &pending, PurchaseMaker &maker);

} // namespace qv
