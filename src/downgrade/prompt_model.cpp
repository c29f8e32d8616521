// Building the downgrade prompts and routing their answers.
#include "downgrade/prompt_model.h"

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace qv {

namespace {

constexpr std::chrono::milliseconds kLegacySheetAnswerDelay{250};

DialogForm alertControllerForm(const Ui &ui) {
    return ui.isTablet() ? DialogForm::Alert : DialogForm::ActionSheet;
}

class PromptBuilder {
  public:
    PromptBuilder(DialogForm form, Presenter presenter, bool withMessage) {
        prompt_.dialog.title = std::string(kPromptTitle);
        if (withMessage) {
            prompt_.dialog.message = std::string(kPromptMessage);
        }
        prompt_.dialog.form = form;
        prompt_.dialog.presenter = presenter;
    }

    PromptBuilder &add(PromptAction action, bool shown = true) {
        if (shown) {
            const bool cancel = action == PromptAction::Cancel;
            prompt_.dialog.buttons.push_back(
                {std::string(titleOf(action)), cancel ? ButtonRole::Cancel : ButtonRole::Default});
            prompt_.actions.push_back(action);
        }
        return *this;
    }

    Prompt build() { return std::move(prompt_); }

  private:
    static std::string_view titleOf(PromptAction action) {
        switch (action) {
        case PromptAction::Continue:
            return kContinueTitle;
        case PromptAction::Downgrade:
            return kDowngradeTitle;
        case PromptAction::BlockAllUpdates:
            return kBlockAllUpdatesTitle;
        case PromptAction::DowngradeToPrevious:
            return kDowngradeToPreviousTitle;
        case PromptAction::AvailableTweaks:
            return kAvailableTweaksTitle;
        case PromptAction::Cancel:
            return kCancelTitle;
        }
        return kCancelTitle;
    }

    Prompt prompt_;
};

std::optional<DowngradeChoice> choiceOf(PromptAction action) {
    switch (action) {
    case PromptAction::Continue:
        return DowngradeChoice::Continue;
    case PromptAction::Downgrade:
        return DowngradeChoice::Downgrade;
    case PromptAction::DowngradeToPrevious:
        return DowngradeChoice::DowngradeToPrevious;
    case PromptAction::Cancel:
        return DowngradeChoice::Cancel;
    case PromptAction::BlockAllUpdates:
    case PromptAction::AvailableTweaks:
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace

std::optional<DowngradeChoice> downgradeChoiceFrom(int answer) {
    switch (answer) {
    case static_cast<int>(DowngradeChoice::Continue):
        return DowngradeChoice::Continue;
    case static_cast<int>(DowngradeChoice::Downgrade):
        return DowngradeChoice::Downgrade;
    case static_cast<int>(DowngradeChoice::DowngradeToPrevious):
        return DowngradeChoice::DowngradeToPrevious;
    case static_cast<int>(DowngradeChoice::Cancel):
        return DowngradeChoice::Cancel;
    default:
        return std::nullopt;
    }
}

Prompt statePrompt(bool installedOrUpdatable, bool proxiesKnowExternalVersions, const Ui &ui) {
    const bool canGoBack = proxiesKnowExternalVersions && installedOrUpdatable;
    if (!ui.hasAlertControllers()) {
        // The sheet lists its cancel button first and never offers blocking.
        return PromptBuilder(DialogForm::LegacyActionSheet, Presenter::KeyWindowRoot, false)
            .add(PromptAction::Cancel)
            .add(PromptAction::Continue)
            .add(PromptAction::Downgrade)
            .add(PromptAction::DowngradeToPrevious, canGoBack)
            .build();
    }
    return PromptBuilder(alertControllerForm(ui), Presenter::KeyWindowRoot, true)
        .add(PromptAction::Continue)
        .add(PromptAction::Downgrade)
        .add(PromptAction::BlockAllUpdates, installedOrUpdatable)
        .add(PromptAction::DowngradeToPrevious, canGoBack)
        .add(PromptAction::Cancel)
        .build();
}

Prompt flagPrompt(const FlagPromptButtons &buttons, bool updateBlockerDisabled, const Ui &ui) {
    return PromptBuilder(alertControllerForm(ui), Presenter::TopMost, true)
        .add(PromptAction::Continue, buttons.continueButton)
        .add(PromptAction::Downgrade)
        .add(PromptAction::BlockAllUpdates, buttons.blockUpdateButton && !updateBlockerDisabled)
        .add(PromptAction::AvailableTweaks, buttons.showTweaksAction)
        .add(PromptAction::Cancel, buttons.cancelButton)
        .build();
}

void presentPrompt(Ui &ui, const Prompt &prompt, PromptHandlers handlers) {
    const bool delayed = prompt.dialog.form == DialogForm::LegacyActionSheet;
    auto shared = std::make_shared<PromptHandlers>(std::move(handlers));
    // A prompt nobody saw answers "Continue": whatever asked goes on as the store would have.
    auto notShown = [shared] {
        if (shared->choice) {
            shared->choice(DowngradeChoice::Continue);
        }
    };
    ui.presentDialog(
        prompt.dialog,
        [&ui, actions = prompt.actions, delayed, shared](const DialogAnswer &answer) {
            if (answer.button >= actions.size()) {
                return;
            }
            const PromptAction action = actions[answer.button];
            if (action == PromptAction::BlockAllUpdates) {
                if (shared->blockAllUpdates) {
                    shared->blockAllUpdates();
                }
                return;
            }
            if (action == PromptAction::AvailableTweaks) {
                if (shared->showTweaks) {
                    shared->showTweaks();
                }
                return;
            }
            const auto choice = choiceOf(action);
            if (!choice || !shared->choice) {
                return;
            }
            if (delayed && *choice != DowngradeChoice::Cancel) {
                ui.afterDelay(kLegacySheetAnswerDelay, [shared, choice] { shared->choice(*choice); });
            } else {
                shared->choice(*choice);
            }
        },
        std::move(notShown));
}

} // namespace qv
