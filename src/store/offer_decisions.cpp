// The offer hooks' decisions and the answer block they share.
#include "store/offer_decisions.h"

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

void handleOfferAnswer(int answer, const OfferItem &item, PendingDowngrades &pending, DowngradeFlows &flows) {
    switch (answer) {
    case static_cast<int>(DowngradeChoice::Continue):
        item.callOrig();
        return;
    case static_cast<int>(DowngradeChoice::Downgrade): {
        auto list = flows.makeVersionsList(item.itemIdentifier);
        list->setCompletion([item, &pending](std::optional<std::string> version) {
            // A row without an identifier clears the entry, as storing nothing into the table does.
            if (version) {
                pending.set(item.itemIdentifier, *version);
            } else {
                pending.erase(item.itemIdentifier);
            }
            if (item.installed) {
                item.startPurchases(version);
            } else {
                item.callOrig();
            }
        });
        flows.ui.presentScreen(list, Presenter::KeyWindowRoot);
        return;
    }
    case static_cast<int>(DowngradeChoice::DowngradeToPrevious): {
        pending.set(item.itemIdentifier, std::string(kPreviousVersionMarker));
        if (!item.installed) {
            item.callOrig();
            return;
        }
        const auto version = item.installedVersion();
        item.startPurchases(version ? std::optional<std::string>(std::to_string(*version)) : std::nullopt);
        return;
    }
    default:
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

MarkedPurchase takePurchaseMarker(const Value &purchase) {
    MarkedPurchase result{false, purchase};
    Dictionary *dictionary = result.purchase.asDictionary();
    if (dictionary != nullptr && dictionary->contains(Value(kCustomPurchaseMarkerKey))) {
        dictionary->erase(Value(kCustomPurchaseMarkerKey));
        result.issuedByUs = true;
    }
    return result;
}

} // namespace qv
