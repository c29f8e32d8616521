// The failure alert of the block action and the support mail it leads to.
#include "updates/block_failure_prompt.h"

#include "updates/block_action.h"

namespace qv {

Dialog blockFailureDialog() {
    Dialog dialog;
    dialog.title = std::string(kBlockFailureTitle);
    dialog.message = std::string(kBlockFailureMessage);
    // A plain alert view: its titles are shown as written, not through the host's translations.
    dialog.form = DialogForm::LegacyAlertView;
    dialog.presenter = Presenter::TopMost;
    dialog.buttons = {{std::string(kBlockFailureCancelTitle), ButtonRole::Cancel},
                      {std::string(kSendEmailTitle), ButtonRole::Default}};
    return dialog;
}

void BlockFailurePrompt::show(const BlockFailure &failure) {
    const Dialog dialog = blockFailureDialog();
    ui_.presentDialog(
        dialog,
        [this, buttons = dialog.buttons, failure](const DialogAnswer &answer) {
            if (answer.button >= buttons.size() || buttons[answer.button].title != kSendEmailTitle ||
                !mail_.canSend()) {
                return;
            }
            mail_.compose(
                {supportAddress_, blockFailureMailSubject(mail_.signedInUsername()), blockFailureMailBody(failure)});
        },
        [] {});
}

} // namespace qv
