// The intercept that rewrites a batch of store purchases before it is queued, as the pending table asks.
#pragma once

#include <memory>
#include <vector>

#include "platform/purchase.h"
#include "service/pending_downgrades.h"

namespace qv {

// A rewritten batch whose entries are claimed but not yet consumed. Commit once the batch has been handed on;
// a batch dropped without a commit (say, because building the store's copy of it failed) releases its claims,
// so a downgrade whose purchase never went out stays pending.
class InterceptedBatch {
  public:
    InterceptedBatch(PendingDowngrades &pending, std::vector<PurchaseHandle> purchases);
    InterceptedBatch(InterceptedBatch &&other) noexcept;
    InterceptedBatch(const InterceptedBatch &) = delete;
    InterceptedBatch &operator=(const InterceptedBatch &) = delete;
    InterceptedBatch &operator=(InterceptedBatch &&) = delete;
    ~InterceptedBatch();

    const std::vector<PurchaseHandle> &purchases() const { return purchases_; }
    void commit();

  private:
    // Claims are held by the batch from the moment they are made, so an exception while the batch is built
    // releases them too.
    friend InterceptedBatch interceptPurchases(const std::vector<PurchaseHandle> &purchases, PendingDowngrades &pending,
                                               PurchaseMaker &maker);

    PendingDowngrades *pending_;
    std::vector<PurchaseHandle> purchases_;
    std::vector<PendingDowngrades::Claim> claims_;
};

// The batch to queue instead of the incoming one: each purchase whose store identifier has a pending entry is
// replaced, at the index of the first equal element, by a fresh purchase with rewritten buy parameters, and the
// entry is claimed for the commit. When no fresh purchase can be made or placed, the purchase goes on unchanged
// and its entry is released at once. Untouched purchases are passed on as the same objects.
InterceptedBatch interceptPurchases(const std::vector<PurchaseHandle> &purchases, PendingDowngrades &pending,
                                    PurchaseMaker &maker);

// interceptPurchases, committed straight away.
std::vector<PurchaseHandle> addPurchasesIntercept(const std::vector<PurchaseHandle> &purchases,
                                                  PendingDowngrades &pending, PurchaseMaker &maker);

} // namespace qv
