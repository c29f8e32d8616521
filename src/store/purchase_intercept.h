// The pending-downgrade table and the intercept that rewrites a batch of store purchases before it is queued.
#pragma once

#include <cstdint>
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
    // An entry held for one purchase while its replacement is made: it stays in the table, but no other purchase
    // can claim it until it is released.
    struct Claim {
        std::string storeIdentifier;
        std::string value;
        std::uint64_t ticket = 0;
    };

    static PendingDowngrades &shared();

    void set(const std::string &storeIdentifier, const std::string &value);
    std::optional<std::string> find(std::string_view storeIdentifier) const;
    bool erase(std::string_view storeIdentifier);
    // Looks up and removes in one step, so one entry can rewrite one purchase only.
    std::optional<std::string> take(std::string_view storeIdentifier);
    // Nothing when there is no entry or another purchase holds it.
    std::optional<Claim> claim(std::string_view storeIdentifier);
    // Removes the claimed entry, unless it has been set afresh since it was claimed.
    void consume(const Claim &claim);
    // Lets another purchase claim the entry again.
    void release(const Claim &claim);
    std::map<std::string, std::string, std::less<>> snapshot() const;
    void clear();

  private:
    struct Entry {
        std::string value;
        std::uint64_t claimedBy = 0; // the claim's ticket; 0 while unclaimed
    };

    mutable std::mutex mutex_;
    std::map<std::string, Entry, std::less<>> entries_;
    std::uint64_t lastTicket_ = 0;
};

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
