// The blocked-updates store: which app updates the user has hidden, kept in memory and in a file that the App Store
// app and the store daemon share, and the rule that decides whether an available update is blocked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "base/value.h"
#include "platform/app_store_container.h"
#include "platform/archive_file.h"
#include "platform/notifier.h"

namespace qv {

// The file, relative to the App Store app's data container. The name says plist; the content is a keyed archive.
inline constexpr std::string_view kBlockedUpdatesRelativePath = "Documents/com.quorvane.qvdovrinkit.plist";
// Tells the store daemon that the file changed.
inline constexpr std::string_view kBlockedUpdatesDaemonReloadNotification = "com.quorvane.dovrinkit.itunestored.reload";
// Tells the App Store app's own update screens to reload their tables.
inline constexpr std::string_view kReloadUpdatesNotification = "com.quorvane.dovrinkit.itunestored.reloadupdates";

// A record: {"version": the hidden version or "", "all": whether every future update is hidden}.
inline constexpr std::string_view kBlockedVersionKey = "version";
inline constexpr std::string_view kBlockedAllKey = "all";

// Whether a record hides every future update. The field is read as the platform reads a switch, so a record
// written by hand with "YES" or "1" counts as well as a boolean.
bool recordBlocksAllUpdates(const Value &record);

// From this CoreFoundation version on, an update record carries its version inside its offers.
constexpr double kOffersCoreFoundationVersion = 1140.1;

// An available update as the store's update item object presents it. Null where the object has no value.
struct StoreUpdateItem {
    Value bundleIdentifier;
    Value versionString;
};

class BlockedUpdates {
  public:
    struct Environment {
        ArchiveFile *archiveFile = nullptr;
        Notifier *notifier = nullptr;
        // Where the file is now; nothing while the App Store app's container is unknown.
        std::function<std::optional<std::string>()> filePath;
        double coreFoundationVersion = kOffersCoreFoundationVersion;
    };

    // Loads the file once, as the shared instance does when it is first used.
    explicit BlockedUpdates(Environment environment);
    BlockedUpdates(const BlockedUpdates &) = delete;
    BlockedUpdates &operator=(const BlockedUpdates &) = delete;

    // The file inside the App Store app's data container, asked for afresh each time.
    static std::function<std::optional<std::string>()> fileInContainer(const AppStoreContainer &container);

    static Value makeRecord(const std::string &version, bool allUpdates);

    Dictionary snapshot() const;
    // One record, or null when the key has none; cheaper than a snapshot for a single row.
    Value record(const Value &key) const;
    // Change memory only; the caller saves. They let a caller edit the records in place (the live dictionary the
    // phone hands out by name) and then save what it changed.
    void setRecord(Value key, Value record);
    void removeRecord(const Value &key);
    // Sets the record and archives all records over the file in one locked step, so that no reload or save from
    // another thread comes between the two. When the save fails the records stay as they were, like the file.
    Result<void> saveRecord(Value key, Value record);

    // Reads the file again. A readable file replaces the records, even when it holds no archive (then they
    // become empty); a missing or unreadable file leaves them as they are.
    void reloadBlockedUpdatesDict();
    // Archives all records over the file. Fails with ContainerUnknown while there is no file to write, or with the
    // archive file's failure.
    Result<void> saveBlockedUpdatesToDisk();

    // The decision rule for the store's update record (a dictionary) and for its update item object. Records are
    // looked up by bundle identifier only. Does not reload.
    bool updateBlocked(const Value &updateDictionary) const;
    bool updateBlocked(const StoreUpdateItem &item) const;

    // Removes the record (present or not), saves, and tells the store daemon. When the save fails the record stays,
    // in memory as in the file, and the daemon is not told.
    Result<void> unblockUpdate(const Value &key);
    // The same; then, when notify is set and whether or not it worked, tells this process's update screens.
    Result<void> unblockUpdate(const Value &key, bool notify);

    // The daemon's merge filter: reloads, then returns the positions of the updates to keep, in order, given each
    // element's update dictionary, and writes their number to availableCount.
    std::vector<std::size_t> mergeAvailableUpdates(const std::vector<Value> &updateDictionaries,
                                                   std::int64_t *availableCount);
    // Reloads, then keeps the update candidates whose item identifier is not a key of the records.
    std::vector<std::size_t> filteredCandidates(const std::vector<Value> &itemIdentifiers);
    // Reloads, then keeps the software updates whose store item identifier is not a key of the records.
    std::vector<std::size_t> filteredASDSoftwareUpdates(const std::vector<std::int64_t> &storeItemIdentifiers);

  private:
    void reloadLocked();
    Result<void> saveLocked();
    // Applies the change and saves; when the save fails, the records are put back as they were.
    template <class Change> Result<void> changeAndSaveLocked(Change change);
    bool blockedLocked(const Value &key, const Value &version) const;
    bool dictionaryBlockedLocked(const Value &updateDictionary) const;

    Environment environment_;
    mutable std::mutex mutex_;
    Dictionary blocked_;
};

// The titles of the updates page's sections whose items are filtered: the store app's own localised texts for
// these keys (default table, "" when missing).
inline constexpr std::string_view kAvailableUpdatesTitleKey = "UPDATES_AVAILABLE_UPDATES";
inline constexpr std::string_view kPendingUpdatesTitleKey = "UPDATES_PENDING_UPDATES";

struct UpdatesSectionTitles {
    std::string availableUpdates;
    std::string pendingUpdates;
};

// Whether a page section's items are filtered: its title equals one of the two localised titles exactly.
bool sectionHidesBlockedUpdates(const std::optional<std::string> &sectionTitle, const UpdatesSectionTitles &titles);

// The positions of a filtered section's items that are not blocked, in order. Uses the records as they are.
std::vector<std::size_t> unblockedSectionItems(const std::vector<StoreUpdateItem> &items, const BlockedUpdates &store);

} // namespace qv
