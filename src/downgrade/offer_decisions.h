// What the offer-button hooks decide: which actions get a long press, when a store action prompts, what each
// answer does, the installed version and the one-time hint.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "downgrade/downgrade_flows.h"
#include "downgrade/prompt_model.h"
#include "platform/ui.h"
#include "service/pending_downgrades.h"

namespace qv {

inline constexpr std::string_view kButtonActionName = "_buttonAction:";
inline constexpr std::string_view kItemOfferConfirmActionName = "_itemOfferConfirmAction:";
inline constexpr std::int64_t kGestureStateBegan = 1;
inline constexpr std::string_view kHoldHintKey = "Long press OPEN to show downgrade options!";
inline constexpr int kOfferViewSearchDepth = 10;

// Registering one of the store's two offer actions on a button attaches the long-press recogniser.
bool actionAttachesLongPress(std::string_view actionName);

struct OfferSettings {
    bool enableDowngradeOptions = false;
    bool longPressToShowDowngradeOptions = false;
};

// Who sent the store action: the button (a tap) or its long-press recogniser, with the recogniser's state.
struct OfferSender {
    bool longPress = false;
    std::int64_t state = 0;
};

enum class OfferDecision { CallOrig, Prompt, Nothing };

// The confirmation hooks' rule. With long press on, an installed app's tap behaves as in the store and only the
// start of a hold prompts; otherwise a supported app's every action prompts.
OfferDecision decideOfferAction(const OfferSettings &settings, bool installed, bool supported, OfferSender sender);

// What the store needs to carry out an answer for one item.
struct OfferItem {
    std::string itemIdentifier; // the store identifier as text
    bool installed = false;
    std::function<void()> callOrig; // the store's own action, with the captured receiver and sender
    // Builds the purchases for the version (nothing: the formatter's "(null)") and starts them on the state centre;
    // false when they could not be handed to the store.
    std::function<bool(std::optional<std::string>)> startPurchases;
    // The installed app's external version identifier.
    std::function<std::optional<std::int64_t>()> installedVersion;
};

// The answer block: Continue runs the store's action, Downgrade opens the versions list and acts on its choice,
// DowngradeToPrevious records "previous" and starts the installed version's purchase; Cancel does nothing. An entry
// whose own purchase could not be submitted is dropped again.
void handleOfferAnswer(DowngradeChoice answer, const OfferItem &item, PendingDowngrades &pending,
                       DowngradeFlows &flows);

// The installed app's external version identifier as the application proxy gives it: the proxy's own, else its
// bundle version read as an integer, else nothing.
struct ApplicationProxyFacts {
    bool exists = false;
    std::optional<std::int64_t> externalVersionIdentifier; // set when the proxy answers it
    std::optional<std::string> bundleVersion;              // set when the proxy answers it
};
std::optional<std::int64_t> versionIdentifierForAppWithID(const ApplicationProxyFacts &proxy);

// The hold hint: shown once, on an installed app's page, after long press was switched on.
bool shouldShowHoldHint(bool hintShownBefore, bool longPressOn, bool installed);
// Where the animated press goes: under the offer view, below the navigation and status bars.
Point holdHintTouchPoint(const Rect &offerViewFrame, double navigationBarHeight, double statusBarHeight);

} // namespace qv
