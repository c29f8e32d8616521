// What the offer-button hooks decide: which actions get a long press, when a store action prompts, what each
// answer does, the installed version, the one-time hint and the redesigned store's purchase marker.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"
#include "platform/ui.h"
#include "store/purchase_initiated.h"
#include "store/purchase_intercept.h"

namespace qv {

inline constexpr std::string_view kButtonActionName = "_buttonAction:";
inline constexpr std::string_view kItemOfferConfirmActionName = "_itemOfferConfirmAction:";
inline constexpr std::int64_t kGestureStateBegan = 1;
inline constexpr std::string_view kCustomPurchaseMarkerKey = "customQVParams";
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
    // Builds the purchases for the version (nothing: the formatter's "(null)") and starts them on the state centre.
    std::function<void(std::optional<std::string>)> startPurchases;
    // The installed app's external version identifier.
    std::function<std::optional<std::int64_t>()> installedVersion;
};

// The answer block: 0 runs the store's action, 1 opens the versions list and acts on its choice, 2 records
// "previous" and starts the installed version's purchase; anything else does nothing.
void handleOfferAnswer(int answer, const OfferItem &item, PendingDowngrades &pending, DowngradeFlows &flows);

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

// The redesigned store's purchase: one the flows issued themselves carries the marker and goes through without it.
struct MarkedPurchase {
    bool issuedByUs = false;
    Value purchase; // without the marker
};
MarkedPurchase takePurchaseMarker(const Value &purchase);

} // namespace qv
