// What the store's updates list decides when the user swipes an update: whether the row may be swiped, the swipe's
// title, and whether to hide this update or every future one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ui.h"

namespace qv {

// On a phone only the available updates (this section of the updates table) can be swiped.
inline constexpr std::size_t kPhoneSwipeableSection = 2;
inline constexpr std::string_view kHideUpdateTitle = "Hide update";
inline constexpr std::string_view kHideThisUpdateTitle = "This Update";
inline constexpr std::string_view kHideAllUpdatesTitle = "All future updates";
inline constexpr std::string_view kHideCancelTitle = "Cancel";

// How a swipe-to-hide is resolved. Nothing changes it from Ask, so the question is always asked.
enum class HideMethod { Ask = 0, ThisUpdate = 1, AllUpdates = 2 };

// An item the store lists as updatable (compared as the store compares its objects).
template <class Item> bool isUpdatableItem(const std::vector<Item> &updatableItems, const Item &item) {
    return std::find(updatableItems.begin(), updatableItems.end(), item) != updatableItems.end();
}

// A tablet lets any section's rows be swiped, a phone only those of the available updates; either way only rows
// of updatable items.
bool canEditUpdateRow(bool tablet, std::size_t section, bool updatableItem);

// "Do you want to hide only this update (<version>) or all future updates of it?" as an action sheet.
Dialog hideUpdateSheet(const std::string &version);

// Resolves a swipe-to-hide: by the method when it says, else by asking. hide runs with whether every future
// update is to be hidden; cancelling runs nothing.
void resolveHideUpdate(Ui &ui, HideMethod method, const std::string &version, std::function<void(bool)> hide);

// How the table follows a recorded swipe-to-hide. The table may only lose the row with its animation when the
// store's data no longer counts it (one row fewer than the table shows); while the data still lists the item, a
// deletion would leave the table disagreeing with its data source, so the table is drawn again from the data.
enum class HiddenRowChange { DeleteRow, ReloadTable };
HiddenRowChange hiddenRowChange(std::size_t rowsShown, std::size_t rowsInData);

} // namespace qv
