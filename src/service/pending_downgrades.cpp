// The pending-downgrade table: entries set by the prompts, claimed and consumed by the purchase intercept.
#include "service/pending_downgrades.h"

#include <utility>

namespace qv {

PendingDowngrades::PendingDowngrades(Clock clock, std::chrono::steady_clock::duration lifetime)
    : clock_(std::move(clock)), lifetime_(lifetime) {}

void PendingDowngrades::expireLocked() const {
    const auto now = clock_();
    std::erase_if(entries_, [&](const auto &entry) { return now - entry.second.setAt >= lifetime_; });
}

std::uint64_t PendingDowngrades::set(const std::string &storeIdentifier, const std::string &value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::uint64_t stamp = ++lastTicket_;
    entries_.insert_or_assign(storeIdentifier, Entry{value, clock_(), stamp, 0});
    return stamp;
}

std::optional<std::string> PendingDowngrades::find(std::string_view storeIdentifier) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    expireLocked();
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    return entry->second.value;
}

bool PendingDowngrades::erase(std::string_view storeIdentifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    expireLocked();
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return false;
    }
    entries_.erase(entry);
    return true;
}

std::optional<std::string> PendingDowngrades::take(std::string_view storeIdentifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    expireLocked();
    const auto entry = entries_.find(storeIdentifier);
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    std::string value = std::move(entry->second.value);
    entries_.erase(entry);
    return value;
}

void PendingDowngrades::drop(std::string_view storeIdentifier, std::uint64_t stamp) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(storeIdentifier);
    if (entry != entries_.end() && entry->second.stamp == stamp) {
        entries_.erase(entry);
    }
}

std::optional<PendingDowngrades::Claim> PendingDowngrades::claim(std::string_view storeIdentifier) {
    const std::lock_guard<std::mutex> lock(mutex_);
    expireLocked();
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
    expireLocked();
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

} // namespace qv
