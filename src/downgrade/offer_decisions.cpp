// The offer hooks' decisions and the answer block they share.
#include "downgrade/offer_decisions.h"

#include <utility>

#include "base/text.h"
#include "service/buy_parameters.h"

namespace qv {

namespace {
constexpr double kHintGapBelowOffer = 2.0;
} // namespace

bool actionAttachesLongPress(std::string_view actionName) {
    return actionName == kButtonActionName || actionName == kItemOfferConfirmActionName;
}

OfferDecision decideOfferAction(const OfferSettings &settings, bool installed, bool supported, OfferSender sender) {
    if (!settings.enableDowngradeOptions) {
        return OfferDecision::CallOrig;
    }
    if (settings.longPressToShowDowngradeOptions && installed) {
        if (!sender.longPress) {
            return OfferDecision::CallOrig;
        }
        if (sender.state != kGestureStateBegan) {
            return OfferDecision::Nothing;
        }
    }
    return supported ? OfferDecision::Prompt : OfferDecision::CallOrig;
}

namespace {

// Starts the purchase the entry was set for; a submission that failed takes its own entry with it, so it cannot
// rewrite a later purchase of the app.
void startPurchasesFor(const OfferItem &item, PendingDowngrades &pending, std::uint64_t stamp,
                       std::optional<std::string> version) {
    if (!item.startPurchases(std::move(version))) {
        pending.drop(item.itemIdentifier, stamp);
    }
}

} // namespace

void handleOfferAnswer(DowngradeChoice answer, const OfferItem &item, PendingDowngrades &pending,
                       DowngradeFlows &flows) {
    switch (answer) {
    case DowngradeChoice::Continue:
        item.callOrig();
        return;
    case DowngradeChoice::Downgrade: {
        auto list = flows.makeVersionsList(item.itemIdentifier);
        list->setCompletion([item, &pending](std::optional<std::string> version) {
            // A row without an identifier clears the entry, as storing nothing into the table does.
            if (!version) {
                pending.erase(item.itemIdentifier);
                if (item.installed) {
                    static_cast<void>(item.startPurchases(std::nullopt));
                } else {
                    item.callOrig();
                }
                return;
            }
            const std::uint64_t stamp = pending.set(item.itemIdentifier, *version);
            if (item.installed) {
                startPurchasesFor(item, pending, stamp, version);
            } else {
                item.callOrig();
            }
        });
        flows.ui.presentScreen(list, Presenter::KeyWindowRoot);
        return;
    }
    case DowngradeChoice::DowngradeToPrevious: {
        const std::uint64_t stamp = pending.set(item.itemIdentifier, std::string(kPreviousVersionMarker));
        if (!item.installed) {
            item.callOrig();
            return;
        }
        const auto version = item.installedVersion();
        startPurchasesFor(item, pending, stamp,
                          version ? std::optional<std::string>(std::to_string(*version)) : std::nullopt);
        return;
    }
    case DowngradeChoice::Cancel:
        return;
    }
}

std::optional<std::int64_t> versionIdentifierForAppWithID(const ApplicationProxyFacts &proxy) {
    if (!proxy.exists) {
        return std::nullopt;
    }
    if (proxy.externalVersionIdentifier) {
        return proxy.externalVersionIdentifier;
    }
    if (proxy.bundleVersion) {
        return lenientInteger(*proxy.bundleVersion);
    }
    return std::nullopt;
}

bool shouldShowHoldHint(bool hintShownBefore, bool longPressOn, bool installed) {
    return !hintShownBefore && longPressOn && installed;
}

Point holdHintTouchPoint(const Rect &offerViewFrame, double navigationBarHeight, double statusBarHeight) {
    return {offerViewFrame.x + offerViewFrame.width / 2,
            navigationBarHeight + statusBarHeight + offerViewFrame.y + offerViewFrame.height + kHintGapBelowOffer};
}

} // namespace qv
