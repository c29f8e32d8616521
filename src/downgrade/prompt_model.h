// The "Hey There!" prompts: which buttons they offer for an item and its settings, and what each answer means.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ui.h"

namespace qv {

// The answer a prompt hands to its caller; the numbers are what store hooks and completions receive.
enum class DowngradeChoice : int { Continue = 0, Downgrade = 1, DowngradeToPrevious = 2, Cancel = 3 };

// The choice an answer number stands for; nothing for a number no prompt gives (such numbers do nothing).
std::optional<DowngradeChoice> downgradeChoiceFrom(int answer);

inline constexpr std::string_view kPromptTitle = "Hey There!";
inline constexpr std::string_view kPromptMessage = "What would you like to do?";
inline constexpr std::string_view kCancelTitle = "Cancel";
inline constexpr std::string_view kContinueTitle = "Continue";
inline constexpr std::string_view kDowngradeTitle = "Downgrade";
inline constexpr std::string_view kBlockAllUpdatesTitle = "Block All Updates";
inline constexpr std::string_view kDowngradeToPreviousTitle = "Downgrade To Previous";
inline constexpr std::string_view kAvailableTweaksTitle = "Available Tweaks";

// What a prompt button does when chosen.
enum class PromptAction { Continue, Downgrade, BlockAllUpdates, DowngradeToPrevious, AvailableTweaks, Cancel };

// A prompt ready to show: the dialog and, button for button, the action behind it.
struct Prompt {
    Dialog dialog;
    std::vector<PromptAction> actions;
};

// The state-driven prompt of the older store. installedOrUpdatable: the item's state says the app is installed
// or has an update. proxiesKnowExternalVersions: the system's application proxies answer
// externalVersionIdentifier, without which there is no going back to the previous version.
Prompt statePrompt(bool installedOrUpdatable, bool proxiesKnowExternalVersions, const Ui &ui);

struct FlagPromptButtons {
    bool continueButton = false;
    bool cancelButton = false;
    bool blockUpdateButton = false;
    bool showTweaksAction = false;
};

// The flag-driven prompt of the redesigned store; "Block All Updates" also needs the update blocker switched on.
Prompt flagPrompt(const FlagPromptButtons &buttons, bool updateBlockerDisabled, const Ui &ui);

// What the caller does with each kind of answer. Blocking and the tweaks page complete nothing.
struct PromptHandlers {
    std::function<void(DowngradeChoice)> choice;
    std::function<void()> blockAllUpdates;
    std::function<void()> showTweaks;
};

// Shows the prompt and routes the chosen button. The legacy action sheet hands every answer but "Cancel" on a
// quarter of a second later, once its dismissal is over. A prompt that cannot be shown answers "Continue", so the
// store's action or purchase goes on unchanged.
void presentPrompt(Ui &ui, const Prompt &prompt, PromptHandlers handlers);

} // namespace qv
