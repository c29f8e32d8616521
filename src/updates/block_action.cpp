// The block action's record, save and notifications, and the texts of the support mail sent when it fails.
#include "updates/block_action.h"

namespace qv {

namespace {

// The mail body's lines are padded so that the composer shows each on its own line.
constexpr std::size_t kMailLinePadding = 60;
constexpr std::string_view kMissingText = "(null)";

std::optional<std::string> keyText(const Value &key) {
    if (const auto *integer = key.asInteger()) {
        return std::to_string(*integer);
    }
    if (const auto *text = key.asString()) {
        return *text;
    }
    return std::nullopt;
}

} // namespace

bool UpdateBlocker::blockUpdate(const BlockableItem &item, bool allUpdates) {
    const bool identified = item.kind != BlockableItem::Kind::Other && item.storeIdentifier.has_value();
    const std::optional<std::string> version = item.kind == BlockableItem::Kind::Other ? std::nullopt : item.version;
    if (!identified) {
        failureAlert_.show(BlockFailure{item.description, version, Value()});
        return false;
    }
    const Value key(static_cast<long long>(*item.storeIdentifier));
    if (!store_.saveRecord(key, BlockedUpdates::makeRecord(version.value_or(""), allUpdates))) {
        // Nothing was blocked: the file and the records are as they were, so the daemon has nothing to reload.
        failureAlert_.show(BlockFailure{item.description, version, key});
        return false;
    }
    notifier_.postSystemWide(std::string(kBlockedUpdatesDaemonReloadNotification));
    return true;
}

bool UpdateBlocker::blockUpdate(const BlockableItem &item, bool allUpdates, bool notify) {
    const bool blocked = blockUpdate(item, allUpdates);
    if (notify) {
        notifier_.postLocal(std::string(kReloadUpdatesNotification));
    }
    return blocked;
}

std::string blockFailureMailBody(const std::optional<std::string> &itemDescription,
                                 const std::optional<std::string> &version, const std::optional<std::string> &key) {
    const std::string padding(kMailLinePadding, ' ');
    return "update: " + itemDescription.value_or(std::string(kMissingText)) + ", \n" + padding +
           "version: " + version.value_or(std::string(kMissingText)) + " \n" + padding +
           "itemIdentifier: " + key.value_or(std::string(kMissingText)) + " \n" + padding;
}

std::string blockFailureMailBody(const BlockFailure &failure) {
    return blockFailureMailBody(failure.itemDescription, failure.version, keyText(failure.key));
}

std::string blockFailureMailSubject(const std::optional<std::string> &username) {
    return username ? "Verdigo Help - username: " + *username : std::string("Verdigo Help");
}

} // namespace qv
