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
    entries_.insert_or_assign(storeIdentifier, Entry{value});
}

std::optional<std::string> PendingDowngrades::find(std::string_view storeIdentifier) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    return entry->second.value;
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
    std::string value = std::move(entry->second.value);
    entries_.erase(entry);
    return value;
}

std::optional<PendingDowngrades::Claim> PendingDowngrades::claim(std::string_view storeIdentifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end() || entry->second.claimedBy != 0) {
        return std::nullopt;
    }
    entry->second.claimedBy = ++lastTicket_;
    return Claim{entry->first, entry->second.value, entry->second.claimedBy};
}

void PendingDowngrades::consume(const Claim &claim) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(claim.storeIdentifier);
    if (entry != entries_.end() && entry->second.claimedBy == claim.ticket) {
        entries_.erase(entry);
    }
}

void PendingDowngrades::release(const Claim &claim) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(claim.storeIdentifier);
    if (entry != entries_.end() && entry->second.claimedBy == claim.ticket) {
        entry->second.claimedBy = 0;
    }
}

std::map<std::string, std::string, std::less<>> PendingDowngrades::snapshot() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::map<std::string, std::string, std::less<>> values;
    for (const auto &[storeIdentifier, entry] : entries_) {
        values.emplace(storeIdentifier, entry.value);
    }
    return values;
}

void PendingDowngrades::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

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
