// The blocked-updates screen's behaviour, independent of how a platform draws it.
#include "updates/blocked_list_model.h"

#include <utility>

#include "base/json.h"
#include "base/text.h"

namespace qv {

namespace {

// A value put into a text the way the platform's %@ does it for the few kinds a record holds.
std::string describe(const Value *value) {
    if (value == nullptr || value->isNull()) {
        return std::string(kNilText);
    }
    if (const auto *text = value->asString()) {
        return *text;
    }
    if (const auto *flag = value->asBool()) {
        return *flag ? "1" : "0";
    }
    return toJson(*value);
}

} // namespace

std::string blockedRowDetail(std::string_view currentVersion, std::string_view blocked) {
    return "Current Version: " + std::string(currentVersion) + " Blocked: " + std::string(blocked);
}

AppCellFrames appCellLayout(AppCellFrames laidOut, bool hasIcon) {
    constexpr double kIconTop = 15;
    constexpr double kIconSide = 60;
    constexpr double kTextLeft = 90;
    laidOut.icon = {laidOut.icon.x, kIconTop, kIconSide, kIconSide};
    if (hasIcon) {
        laidOut.title.x = kTextLeft;
        laidOut.detail.x = kTextLeft;
    }
    return laidOut;
}

BlockedListModel::BlockedListModel(BlockedUpdates &store, const InstalledApps &apps,
                                   std::function<void()> deletedUpdate)
    : store_(store), apps_(apps), deletedUpdate_(std::move(deletedUpdate)) {
    for (const auto &[key, record] : store_.snapshot()) {
        keys_.push_back(key);
    }
}

BlockedListModel::Row BlockedListModel::row(std::size_t index) const {
    Row row;
    if (index >= keys_.size()) {
        return row;
    }
    const Value &key = keys_[index];
    const auto app = apps_.appForKey(key);
    std::string current(kNilText);
    if (app) {
        row.iconBundleIdentifier = app->bundleIdentifier;
        row.title = app->name;
        if (app->shortVersion) {
            current = *app->shortVersion;
        } else if (app->bundleVersion) {
            current = *app->bundleVersion;
        }
    }
    const Value record = store_.record(key);
    const std::string blocked =
        recordBlocksAllUpdates(record) ? std::string(kAllUpdatesBlockedText) : describe(&record[kBlockedVersionKey]);
    row.detail = blockedRowDetail(current, blocked);
    return row;
}

Result<void> BlockedListModel::deleteRow(std::size_t index) {
    if (index >= keys_.size()) {
        return fail(ErrorCode::NotFound, "no row " + std::to_string(index));
    }
    const Value key = std::move(keys_[index]);
    keys_.erase(keys_.begin() + static_cast<std::ptrdiff_t>(index));
    Result<void> unblocked = store_.unblockUpdate(key);
    if (deletedUpdate_) {
        deletedUpdate_();
    }
    return unblocked;
}

} // namespace qv
