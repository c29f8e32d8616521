// The pending-downgrade table and the purchase intercept that consumes it.
#include "service/purchase_intercept.h"

#include "core/regex.h"

#include <algorithm>

namespace qv {
namespace {

constexpr std::string_view kStoreIdentifierPattern = R"(salableAdamId=([\d]*))";
constexpr std::string_view kVersionPattern = R"(appExtVrsId=([\d]*))";
constexpr std::string_view kPreviousMarker = "previous";
constexpr std::string_view kPreviousSuffix = "&qvprevious=1";
constexpr std::size_t kValueGroup = 1;

std::string firstGroup(std::string_view pattern, const std::string &subject) {
    const auto regex = Regex::compile(pattern);
    if (!regex) {
        return {};
    }
    const auto match = regex->firstMatch(subject);
    return match ? std::string(match->group(subject, kValueGroup)) : std::string();
}

std::string rewrittenBuyParameters(const std::string &storeIdentifier, const std::string &version) {
    return "productType=C&price=0&salableAdamId=" + storeIdentifier +
           "&pricingParameters=SWUPD&appExtVrsId=" + version + "&clientBuyId=1";
}

} // namespace

PendingDowngrades &PendingDowngrades::shared() {
    static PendingDowngrades table;
    return table;
}

void PendingDowngrades::set(const std::string &storeIdentifier, const std::string &value) {
    const std::lock_guard lock(mutex_);
    entries_[storeIdentifier] = value;
}

std::optional<std::string> PendingDowngrades::find(std::string_view storeIdentifier) const {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    return entry == entries_.end() ? std::nullopt : std::optional<std::string>(entry->second);
}

bool PendingDowngrades::erase(std::string_view storeIdentifier) {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return false;
    }
    entries_.erase(entry);
    return true;
}

std::optional<std::string> PendingDowngrades::take(std::string_view storeIdentifier) {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    std::string value = std::move(entry->second);
    entries_.erase(entry);
    return value;
}

std::map<std::string, std::string, std::less<>> PendingDowngrades::snapshot() const {
    const std::lock_guard lock(mutex_);
    return entries_;
}

void PendingDowngrades::clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
}

std::vector<PurchaseHandle> addPurchasesIntercept(const std::vector<PurchaseHandle> &purchases,
                                                  PendingDowngrades &pending, PurchaseMaker &maker) {
    std::vector<PurchaseHandle> batch = purchases;
    for (const PurchaseHandle &purchase : purchases) {
        if (!purchase) {
            continue;
        }
        const std::string buyParameters = purchase->buyParameters();
        const std::string storeIdentifier = firstGroup(kStoreIdentifierPattern, buyParameters);
        auto version = pending.take(storeIdentifier);
        if (!version) {
            continue;
        }
        if (*version == kPreviousMarker) {
            version = firstGroup(kVersionPattern, buyParameters) + std::string(kPreviousSuffix);
        }
        PurchaseHandle fresh = maker.purchaseWithBuyParameters(rewrittenBuyParameters(storeIdentifier, *version));
        const auto slot = std::find_if(batch.begin(), batch.end(), [&](const PurchaseHandle &queued) {
            return queued && queued->isEqualTo(*purchase);
        });
        if (fresh && slot != batch.end()) {
            *slot = std::move(fresh);
        }
    }
    return batch;
}

} // namespace qv
