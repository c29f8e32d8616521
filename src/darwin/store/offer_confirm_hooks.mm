// Bodies of the older store's offer confirmations: list cells, browse cells and product pages.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/uikit_helper.h"
#include "darwin/service/store_objects.h"
#include "darwin/store/phone_store_purchasing.h"
#include "darwin/store/store_items.h"
#include "downgrade/offer_decisions.h"
#include "store/item_state.h"

#include <array>

namespace qv::darwin {
namespace {

using StoreAction = void (*)(id, SEL, id);

OfferSettings offerSettings() {
    const SettingsModel &model = settings();
    return {model.value(Setting::EnableDowngradeOptions), model.value(Setting::LongPressToShowDowngradeOptions)};
}

// Prompts, or lets the store's action run, for one item whose state and identifier were read by the caller.
void confirmOffer(id itemState, const std::string &itemIdentifier, UIView *sourceView, id sender,
                  const std::function<void()> &callOrig) {
    const std::int32_t state = stateValueOf(itemState);
    const bool installed = installedAppState(state);
    OfferSender offerSender;
    if ([sender isKindOfClass:UILongPressGestureRecognizer.class]) {
        offerSender = {true, static_cast<UIGestureRecognizer *>(sender).state};
    }
    switch (decideOfferAction(offerSettings(), installed, supportedAppState(state), offerSender)) {
    case OfferDecision::CallOrig:
        callOrig();
        return;
    case OfferDecision::Nothing:
        return;
    case OfferDecision::Prompt:
        break;
    }
    OfferItem item;
    item.itemIdentifier = itemIdentifier;
    item.installed = installed;
    item.callOrig = callOrig;
    item.startPurchases = [itemIdentifier, installed](std::optional<std::string> version) {
        return submitToStore(purchasesForStoreIdentifier(toNSString(itemIdentifier),
                                                         version ? toNSString(*version) : nil, installed ? YES : NO));
    };
    item.installedVersion = [itemIdentifier] {
        NSNumber *storeIdentifier = @([toNSString(itemIdentifier) longLongValue]);
        return versionIdentifierForAppWithID(applicationProxyFacts(applicationProxyForItemID(storeIdentifier)));
    };
    [QVUIKitHelper downgradeAlertWithState:itemState
                                completion:^(int answer) {
                                  guarded([&] {
                                      if (const auto choice = downgradeChoiceFrom(answer)) {
                                          handleOfferAnswer(*choice, item, pendingDowngrades(), downgradeFlows());
                                      }
                                  });
                                }
                                sourceView:sourceView];
}

// The store's own action with the receiver and sender it was given; safe to run once the hook has returned.
std::function<void()> storeActionOf(MethodImplementation orig, id self, SEL _cmd, id sender) {
    return [orig, self, _cmd, sender] { guarded([&] { callable<StoreAction>(orig)(self, _cmd, sender); }); };
}

MethodImplementation origCellConfirm = nullptr;
MethodImplementation origBrowseCellConfirm = nullptr;
MethodImplementation origOfferViewAction = nullptr;

template <MethodImplementation &Orig> void cellLayoutOfferConfirm(id self, SEL _cmd, id sender) {
    const auto callOrig = storeActionOf(Orig, self, _cmd, sender);
    bool handled = false;
    guarded([&] {
        if (!settings().value(Setting::EnableDowngradeOptions)) {
            return;
        }
        id itemState = valueOrNil(self, @"itemState");
        id parentCell = valueOrNil(self, @"parentCellView");
        handled = true;
        confirmOffer(itemState, textForm(valueOrNil(itemState, @"itemIdentifier")).value_or("(null)"),
                     [parentCell isKindOfClass:UIView.class] ? parentCell : nil, sender, callOrig);
    });
    if (!handled) {
        callOrig();
    }
}

void offerViewButtonAction(id self, SEL _cmd, id sender) {
    const auto callOrig = storeActionOf(origOfferViewAction, self, _cmd, sender);
    bool handled = false;
    guarded([&] {
        id libraryItem = libraryItemOf(self);
        if (!settings().value(Setting::EnableDowngradeOptions) || libraryItem == nil) {
            return;
        }
        id storeIdentifier = valueOrNil(libraryItem, @"storeItemIdentifier");
        handled = true;
        confirmOffer(itemStateForIdentifier(storeIdentifier), textForm(storeIdentifier).value_or("(null)"), self,
                     sender, callOrig);
    });
    if (!handled) {
        callOrig();
    }
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("SKUIItemCellLayout", "_itemOfferConfirmAction:"), cellLayoutOfferConfirm<origCellConfirm>>(
        origCellConfirm),
    replacement<rowOf("SKUIItemBrowseCellLayout", "_itemOfferConfirmAction:"),
                cellLayoutOfferConfirm<origBrowseCellConfirm>>(origBrowseCellConfirm),
    replacement<rowOf("SKUIOfferView", "_buttonAction:"), offerViewButtonAction>(origOfferViewAction),
};

} // namespace

} // namespace qv::darwin
