// The pending-downgrade table: which app's next purchase is to become a downgrade, and to which version.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

// The process-wide pending-downgrade table: store identifier -> chosen external version identifier or "previous".
// Written on the main thread, consumed on the store's threads; every operation is atomic.
//
// An entry is meant for the purchase its answer starts, which reaches the store within seconds. One whose purchase
// never came (its submission failed quietly) must not rewrite the app's next ordinary update days later, so an
// entry lives for a limited time from when it was set, and its submitter drops it when the submission fails.
class PendingDowngrades {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    static constexpr std::chrono::minutes kLifetime{10};

    // An entry held for one purchase while its replacement is made: it stays in the table, but no other purchase
    // can claim it until it is released.
    struct Claim {
        std::string storeIdentifier;
        std::string value;
        std::uint64_t ticket = 0;
    };

    explicit PendingDowngrades(Clock clock = &std::chrono::steady_clock::now,
                               std::chrono::steady_clock::duration lifetime = kLifetime);

    // Sets the entry afresh and returns its stamp, which names this setting of it and no later one.
    std::uint64_t set(const std::string &storeIdentifier, const std::string &value);
    std::optional<std::string> find(std::string_view storeIdentifier) const;
    bool erase(std::string_view storeIdentifier);
    // Looks up and removes in one step, so one entry can rewrite one purchase only.
    std::optional<std::string> take(std::string_view storeIdentifier);
    // Removes the entry that set returned stamp for; an entry set again since then stays.
    void drop(std::string_view storeIdentifier, std::uint64_t stamp);
    // Nothing when there is no live entry or another purchase holds it.
    std::optional<Claim> claim(std::string_view storeIdentifier);
    // Removes the claimed entry, unless it has been set afresh since it was claimed.
    void consume(const Claim &claim);
    // Lets another purchase claim the entry again.
    void release(const Claim &claim);
    // The live entries.
    std::map<std::string, std::string, std::less<>> snapshot() const;
    void clear();

  private:
    struct Entry {
        std::string value;
        std::chrono::steady_clock::time_point setAt;
        std::uint64_t stamp = 0;
        std::uint64_t claimedBy = 0; // the claim's ticket; 0 while unclaimed
    };

    // Drops every entry whose lifetime is over; the caller holds the lock.
    void expireLocked() const;

    Clock clock_;
    std::chrono::steady_clock::duration lifetime_;
    mutable std::mutex mutex_;
    // Expiry happens on reads as well, so the entries are mutable.
    mutable std::map<std::string, Entry, std::less<>> entries_;
    std::uint64_t lastTicket_ = 0;
};

} // namespace qv
