// The blocked-updates store: file reload and save, the decision rule, unblocking and the update filters.
#include "updates/blocked_updates.h"

#include <utility>

#include "base/text.h"

namespace qv {

namespace {

Dictionary emptyRecords() {
    Dictionary records;
    records.setMutable(true);
    return records;
}

} // namespace

BlockedUpdates::BlockedUpdates(Environment environment)
    : environment_(std::move(environment)), blocked_(emptyRecords()) {
    std::lock_guard<std::mutex> lock(mutex_);
    reloadLocked();
}

std::function<std::optional<std::string>()> BlockedUpdates::fileInContainer(const AppStoreContainer &container) {
    return [&container]() -> std::optional<std::string> {
        auto directory = container.dataContainerDirectory();
        if (!directory || directory->empty()) {
            return std::nullopt;
        }
        if (directory->back() != '/') {
            directory->push_back('/');
        }
        return *directory + std::string(kBlockedUpdatesRelativePath);
    };
}

Value BlockedUpdates::makeRecord(const std::string &version, bool allUpdates) {
    return Value(Dictionary{{kBlockedVersionKey, Value(version)}, {kBlockedAllKey, Value(allUpdates)}});
}

Dictionary BlockedUpdates::snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return blocked_;
}

Value BlockedUpdates::record(const Value &key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Value *found = blocked_.find(key);
    return found != nullptr ? *found : Value();
}

void BlockedUpdates::setRecord(Value key, Value record) {
    std::lock_guard<std::mutex> lock(mutex_);
    blocked_.set(std::move(key), std::move(record));
}

void BlockedUpdates::removeRecord(const Value &key) {
    std::lock_guard<std::mutex> lock(mutex_);
    blocked_.erase(key);
}

Result<void> BlockedUpdates::saveRecord(Value key, Value record) {
    std::lock_guard<std::mutex> lock(mutex_);
    return changeAndSaveLocked([&] { blocked_.set(std::move(key), std::move(record)); });
}

void BlockedUpdates::reloadBlockedUpdatesDict() {
    std::lock_guard<std::mutex> lock(mutex_);
    reloadLocked();
}

void BlockedUpdates::reloadLocked() {
    if (environment_.archiveFile == nullptr || !environment_.filePath) {
        return;
    }
    const auto path = environment_.filePath();
    if (!path) {
        return;
    }
    Result<Value> loaded = environment_.archiveFile->load(*path);
    if (!loaded && loaded.error().code == ErrorCode::FileUnreadable) {
        return; // a running process keeps what it has when the file goes away
    }
    Dictionary *records = loaded ? loaded->asDictionary() : nullptr;
    if (records == nullptr) {
        blocked_ = emptyRecords(); // a file that holds no records holds none
        return;
    }
    blocked_ = std::move(*records);
    blocked_.setMutable(true);
}

Result<void> BlockedUpdates::saveBlockedUpdatesToDisk() {
    std::lock_guard<std::mutex> lock(mutex_);
    return saveLocked();
}

Result<void> BlockedUpdates::saveLocked() {
    const auto path = environment_.filePath ? environment_.filePath() : std::nullopt;
    if (environment_.archiveFile == nullptr || !path) {
        return fail(ErrorCode::ContainerUnknown);
    }
    return environment_.archiveFile->save(*path, Value(blocked_));
}

// Memory follows the file: a change the file did not take is undone, so that this process does not hide or show
// updates that the other process, reading the file, treats differently.
template <class Change> Result<void> BlockedUpdates::changeAndSaveLocked(Change change) {
    Dictionary before = blocked_;
    change();
    Result<void> saved = saveLocked();
    if (!saved) {
        blocked_ = std::move(before);
    }
    return saved;
}

bool recordBlocksAllUpdates(const Value &record) {
    return lenientBool(record[kBlockedAllKey]);
}

bool BlockedUpdates::blockedLocked(const Value &key, const Value &version) const {
    if (key.isNull()) {
        return false;
    }
    const Value *record = blocked_.find(key);
    if (record == nullptr) {
        return false;
    }
    if (recordBlocksAllUpdates(*record)) {
        return true;
    }
    const std::string *recordVersion = (*record)[kBlockedVersionKey].asString();
    return recordVersion != nullptr && version.asString() != nullptr && *recordVersion == *version.asString();
}

bool BlockedUpdates::dictionaryBlockedLocked(const Value &updateDictionary) const {
    const Value &key = updateDictionary["bundleId"];
    if (environment_.coreFoundationVersion < kOffersCoreFoundationVersion) {
        return blockedLocked(key, updateDictionary["version"]);
    }
    // Without offers there is nothing to update to, whatever the record says.
    const Array *offers = updateDictionary["offers"].asArray();
    if (offers == nullptr || offers->empty()) {
        return false;
    }
    return blockedLocked(key, updateDictionary["offers"][0]["version"]["display"]);
}

bool BlockedUpdates::updateBlocked(const Value &updateDictionary) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return dictionaryBlockedLocked(updateDictionary);
}

bool BlockedUpdates::updateBlocked(const StoreUpdateItem &item) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return blockedLocked(item.bundleIdentifier, item.versionString);
}

Result<void> BlockedUpdates::unblockUpdate(const Value &key) {
    Result<void> saved;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        saved = changeAndSaveLocked([&] { blocked_.erase(key); });
    }
    if (saved && environment_.notifier != nullptr) {
        environment_.notifier->postSystemWide(std::string(kBlockedUpdatesDaemonReloadNotification));
    }
    return saved;
}

Result<void> BlockedUpdates::unblockUpdate(const Value &key, bool notify) {
    Result<void> saved = unblockUpdate(key);
    if (notify && environment_.notifier != nullptr) {
        environment_.notifier->postLocal(std::string(kReloadUpdatesNotification));
    }
    return saved;
}

std::vector<std::size_t> BlockedUpdates::mergeAvailableUpdates(const std::vector<Value> &updateDictionaries,
                                                               std::int64_t *availableCount) {
    std::lock_guard<std::mutex> lock(mutex_);
    reloadLocked();
    std::vector<std::size_t> kept;
    kept.reserve(updateDictionaries.size());
    for (std::size_t position = 0; position < updateDictionaries.size(); ++position) {
        if (!dictionaryBlockedLocked(updateDictionaries[position])) {
            kept.push_back(position);
        }
    }
    if (availableCount != nullptr) {
        *availableCount = static_cast<std::int64_t>(kept.size());
    }
    return kept;
}

std::vector<std::size_t> BlockedUpdates::filteredCandidates(const std::vector<Value> &itemIdentifiers) {
    std::lock_guard<std::mutex> lock(mutex_);
    reloadLocked();
    std::vector<std::size_t> kept;
    for (std::size_t position = 0; position < itemIdentifiers.size(); ++position) {
        const Value &identifier = itemIdentifiers[position];
        if (identifier.isNull() || !blocked_.contains(identifier)) {
            kept.push_back(position);
        }
    }
    return kept;
}

std::vector<std::size_t>
BlockedUpdates::filteredASDSoftwareUpdates(const std::vector<std::int64_t> &storeItemIdentifiers) {
    std::lock_guard<std::mutex> lock(mutex_);
    reloadLocked();
    std::vector<std::size_t> kept;
    for (std::size_t position = 0; position < storeItemIdentifiers.size(); ++position) {
        if (!blocked_.contains(Value(static_cast<long long>(storeItemIdentifiers[position])))) {
            kept.push_back(position);
        }
    }
    return kept;
}

bool sectionHidesBlockedUpdates(const std::optional<std::string> &sectionTitle, const UpdatesSectionTitles &titles) {
    return sectionTitle && (*sectionTitle == titles.availableUpdates || *sectionTitle == titles.pendingUpdates);
}

std::vector<std::size_t> unblockedSectionItems(const std::vector<StoreUpdateItem> &items, const BlockedUpdates &store) {
    std::vector<std::size_t> kept;
    kept.reserve(items.size());
    for (std::size_t position = 0; position < items.size(); ++position) {
        if (!store.updateBlocked(items[position])) {
            kept.push_back(position);
        }
    }
    return kept;
}

} // namespace qv
