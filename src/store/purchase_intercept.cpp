// The purchase intercept, which consumes the pending-downgrade table.
#include "store/purchase_intercept.h"

#include "service/buy_parameters.h"

#include <utility>

namespace qv {

InterceptedBatch::InterceptedBatch(PendingDowngrades &pending, std::vector<PurchaseHandle> purchases)
    : pending_(&pending), purchases_(std::move(purchases)) {}

InterceptedBatch::InterceptedBatch(InterceptedBatch &&other) noexcept
    : pending_(other.pending_), purchases_(std::move(other.purchases_)), claims_(std::move(other.claims_)) {
    other.claims_.clear();
}

InterceptedBatch::~InterceptedBatch() {
    for (const auto &claim : claims_) {
        pending_->release(claim);
    }
}

void InterceptedBatch::commit() {
    for (const auto &claim : claims_) {
        pending_->consume(claim);
    }
    claims_.clear();
}

namespace {

// Puts fresh where the first purchase equal to the incoming one sits; false when there is no such place.
bool placeFresh(std::vector<PurchaseHandle> &batch, const Purchase &incoming, PurchaseHandle fresh) {
    for (auto &slot : batch) {
        if (slot && incoming.isEqualTo(*slot)) {
            slot = std::move(fresh);
            return true;
        }
    }
    return false;
}

} // namespace

InterceptedBatch interceptPurchases(const std::vector<PurchaseHandle> &purchases, PendingDowngrades &pending,
                                    PurchaseMaker &maker) {
    InterceptedBatch intercepted(pending, purchases);
    for (const auto &purchase : purchases) {
        if (!purchase) {
            continue;
        }
        const std::string buyParameters = purchase->buyParameters();
        const std::string storeIdentifier = appIdentifierFromBuyParameters(buyParameters);
        // Claimed in one step, so a store thread racing another cannot use one entry twice.
        auto claim = pending.claim(storeIdentifier);
        if (!claim) {
            continue;
        }
        intercepted.claims_.push_back(*claim);
        const std::string version = pendingVersionSlot(claim->value, buyParameters);
        // Deliberately nothing else of the incoming purchase is carried over: the store fills in the rest.
        PurchaseHandle fresh =
            maker.purchaseWithBuyParameters(rewrittenPurchaseBuyParameters(storeIdentifier, version));
        if (!fresh || !placeFresh(intercepted.purchases_, *purchase, std::move(fresh))) {
            intercepted.claims_.pop_back();
            pending.release(*claim);
        }
    }
    return intercepted;
}

std::vector<PurchaseHandle> addPurchasesIntercept(const std::vector<PurchaseHandle> &purchases,
                                                  PendingDowngrades &pending, PurchaseMaker &maker) {
    InterceptedBatch intercepted = interceptPurchases(purchases, pending, maker);
    intercepted.commit();
    return intercepted.purchases();
}

} // namespace qv
