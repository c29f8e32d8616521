// The block action: records that one update, or every future update, of an app is blocked, and tells who must know.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/value.h"
#include "platform/block_failure_alert.h"
#include "platform/notifier.h"
#include "updates/blocked_updates.h"

namespace qv {

// The item handed to the action, as the phone's adapter describes the object it was given.
struct BlockableItem {
    enum class Kind {
        UpdateItem,       // the store's update item: its itemIdentifier and versionString
        ApplicationProxy, // an installed application: its itemID and shortVersionString
        Other,            // anything else: no store identifier, no version
    };
    Kind kind = Kind::Other;
    std::optional<std::int64_t> storeIdentifier;
    std::optional<std::string> version;
    std::string description; // for the support mail when blocking fails
};

class UpdateBlocker {
  public:
    UpdateBlocker(BlockedUpdates &store, Notifier &notifier, BlockFailureAlert &failureAlert)
        : store_(store), notifier_(notifier), failureAlert_(failureAlert) {}

    // Writes {"version": version or "", "all": allUpdates} under the store identifier, saves the file and then
    // tells the store daemon. Without a store identifier, or when the file cannot be saved, nothing is kept or
    // posted and the failure alert is shown instead; returns whether the record was saved.
    bool blockUpdate(const BlockableItem &item, bool allUpdates);
    // The same; afterwards, when notify is set and whether or not blocking worked, tells this process's update
    // screens to reload.
    bool blockUpdate(const BlockableItem &item, bool allUpdates, bool notify);

  private:
    BlockedUpdates &store_;
    Notifier &notifier_;
    BlockFailureAlert &failureAlert_;
};

// The support mail's body for a failed block: item, version and key, with the platform's "(null)" for missing ones.
std::string blockFailureMailBody(const std::optional<std::string> &itemDescription,
                                 const std::optional<std::string> &version, const std::optional<std::string> &key);
std::string blockFailureMailBody(const BlockFailure &failure);

// The support mail's subject, naming the user of the maker's account when one is signed in.
std::string blockFailureMailSubject(const std::optional<std::string> &username);

} // namespace qv
