// The updates list's swipe-to-hide decisions.
#include "updates/updates_list_decisions.h"

#include <utility>

namespace qv {

bool canEditUpdateRow(bool tablet, std::size_t section, bool updatableItem) {
    if (!tablet && section != kPhoneSwipeableSection) {
        return false;
    }
    return updatableItem;
}

Dialog hideUpdateSheet(const std::string &version) {
    Dialog sheet;
    sheet.title = "Do you want to hide only this update (" + version + ") or all future updates of it?";
    sheet.form = DialogForm::LegacyActionSheet;
    sheet.presenter = Presenter::Screen;
    sheet.buttons = {{std::string(kHideThisUpdateTitle), ButtonRole::Default},
                     {std::string(kHideAllUpdatesTitle), ButtonRole::Default},
                     {std::string(kHideCancelTitle), ButtonRole::Cancel}};
    return sheet;
}

void resolveHideUpdate(Ui &ui, HideMethod method, const std::string &version, std::function<void(bool)> hide) {
    switch (method) {
    case HideMethod::ThisUpdate:
        hide(false);
        return;
    case HideMethod::AllUpdates:
        hide(true);
        return;
    case HideMethod::Ask:
        break;
    }
    ui.presentDialog(
        hideUpdateSheet(version),
        [hide = std::move(hide)](const DialogAnswer &answer) {
            // The buttons in the order of hideUpdateSheet: this update, all future updates, cancel.
            if (answer.button == 0) {
                hide(false);
            } else if (answer.button == 1) {
                hide(true);
            }
        },
        [] {});
}

HiddenRowChange hiddenRowChange(std::size_t rowsShown, std::size_t rowsInData) {
    return rowsShown > 0 && rowsInData == rowsShown - 1 ? HiddenRowChange::DeleteRow : HiddenRowChange::ReloadTable;
}

} // namespace qv
