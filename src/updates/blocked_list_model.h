// The "Blocked App Updates" screen as a model: one row per blocked app, editing, and delete to unblock.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "base/value.h"
#include "platform/installed_apps.h"
#include "platform/ui.h"
#include "updates/blocked_updates.h"

namespace qv {

inline constexpr std::string_view kBlockedListTitle = "Blocked App Updates";
inline constexpr std::string_view kAppCellIdentifier = "QVAppCell";
inline constexpr double kBlockedRowHeight = 90;
inline constexpr std::string_view kEditTitle = "Edit";
inline constexpr std::string_view kDoneTitle = "Done";
inline constexpr std::string_view kAllUpdatesBlockedText = "All";
// How the platform writes a missing value into a text.
inline constexpr std::string_view kNilText = "(null)";

// A row's frames: the icon, the name and the detail text.
struct AppCellFrames {
    Rect icon;
    Rect title;
    Rect detail;
    friend bool operator==(const AppCellFrames &, const AppCellFrames &) = default;
};

// The row's frames as the table laid them out, adjusted: the icon a 60-point square 15 points down, and the texts
// starting at 90 points, but only when there is an icon for them to make room for.
AppCellFrames appCellLayout(AppCellFrames laidOut, bool hasIcon);

// "Current Version: %@ Blocked: %@"
std::string blockedRowDetail(std::string_view currentVersion, std::string_view blocked);

class BlockedListModel final : public ScreenModel {
  public:
    struct Row {
        std::string iconBundleIdentifier; // the app's icon, by bundle identifier; empty when the app is gone
        std::string title;                // the app's name; empty when the app is gone
        std::string detail;
    };

    // Takes the store's keys once, in the store's order; records added later are not shown until the screen is
    // made again. deletedUpdate is the delegate's call after each deletion; it may be empty.
    BlockedListModel(BlockedUpdates &store, const InstalledApps &apps, std::function<void()> deletedUpdate);

    ScreenKind kind() const override { return ScreenKind::BlockedUpdates; }
    std::string_view title() const { return kBlockedListTitle; }

    const std::vector<Value> &keys() const { return keys_; }
    std::size_t rowCount() const { return keys_.size(); }
    // Read afresh each time, as a cell is drawn.
    Row row(std::size_t index) const;

    bool editing() const { return editing_; }
    std::string_view editButtonTitle() const { return editing_ ? kDoneTitle : kEditTitle; }
    void toggleEditing() { editing_ = !editing_; }

    // Removes the row and unblocks its key (saved, and the store daemon told), then tells the delegate. The row
    // goes even when the save fails, as it does on the phone; the failure is returned.
    Result<void> deleteRow(std::size_t index);

  private:
    BlockedUpdates &store_;
    const InstalledApps &apps_;
    std::function<void()> deletedUpdate_;
    std::vector<Value> keys_;
    bool editing_ = false;
};

} // namespace qv
