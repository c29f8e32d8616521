// The pending-downgrade table and the purchase intercept that consumes it.
#include "store/purchase_intercept.h"

#include "service/buy_parameters.h"

namespace qv {

PendingDowngrades &PendingDowngrades::shared() {
    // Never destroyed: a store thread may still consume it while the process exits.
    static auto *const table = new PendingDowngrades();
    return *table;
}

void PendingDowngrades::set(const std::string &storeIdentifier, const std::string &value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.insert_or_assign(storeIdentifier, value);
}

std::optional<std::string> PendingDowngrades::find(std::string_view storeIdentifier) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    return entry->second;
}

bool PendingDowngrades::erase(std::string_view storeIdentifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return false;
    }
    entries_.erase(entry);
    return true;
}

std::optional<std::string> PendingDowngrades::take(std::string_view storeIdentifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    std::string value = std::move(entry->second);
    entries_.erase(entry);
    return value;
}

std::map<std::string, std::string, std::less<>> PendingDowngrades::snapshot() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
}

void PendingDowngrades::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

std::vector<PurchaseHandle> addPurchasesIntercept(const std::vector<PurchaseHandle> &purchases,
                                                  PendingDowngrades &pending, PurchaseMaker &maker) {
    std::vector<PurchaseHandle> batch = purchases;
    for (const auto &purchase : purchases) {
        if (!purchase) {
            continue;
        }
        const std::string buyParameters = purchase->buyParameters();
        const std::string storeIdentifier = appIdentifierFromBuyParameters(buyParameters);
        // Looked up and erased in one step, so a store thread racing another cannot use one entry twice.
        const auto pendingValue = pending.take(storeIdentifier);
        if (!pendingValue) {
            continue;
        }
        const std::string version = pendingVersionSlot(*pendingValue, buyParameters);
        // Deliberately nothing else of the incoming purchase is carried over: the store fills in the rest.
        PurchaseHandle fresh =
            maker.purchaseWithBuyParameters(rewrittenPurchaseBuyParameters(storeIdentifier, version));
        if (!fresh) {
            continue;
        }
        for (auto &slot : batch) {
            if (slot && purchase->isEqualTo(*slot)) {
                slot = std::move(fresh);
                break;
            }
        }
    }
    return batch;
}

} // namespace qv
