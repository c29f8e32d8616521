// Bodies of the older store's offer confirmations (list cells, browse cells, product pages) and the hold hint.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/uikit_helper.h"
#include "darwin/service/store_objects.h"
#include "darwin/store/phone_store_purchasing.h"
#include "store/item_state.h"
#include "store/offer_decisions.h"

#import <objc/message.h>

#include <array>

@interface UIView (QVStoreObjectSearch)
- (UIView *)qv_firstSubviewOfClass:(Class)cls maxDeepnessLevel:(NSInteger)maxDepth;
@end

namespace qv::darwin {
namespace {

using StoreAction = void (*)(id, SEL, id);

id valueOrNil(id object, NSString *key) {
    return [object respondsToSelector:NSSelectorFromString(key)] ? [object valueForKey:key] : nil;
}

std::int32_t stateValueOf(id itemState) {
    return static_cast<std::int32_t>([valueOrNil(itemState, @"state") longLongValue]);
}

// The default state centre's state for a store identifier; nil without a centre.
id itemStateForIdentifier(id storeIdentifier) {
    Class center = objc_getClass("SKUIItemStateCenter");
    SEL lookup = NSSelectorFromString(@"stateForItemWithIdentifier:");
    id defaultCenter = [center respondsToSelector:NSSelectorFromString(@"defaultCenter")]
                           ? [center valueForKey:@"defaultCenter"]
                           : nil;
    if (![defaultCenter respondsToSelector:lookup]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL, long long)>(objc_msgSend)(defaultCenter, lookup,
                                                                      [storeIdentifier longLongValue]);
}

id libraryItemOf(id offerView) {
    return [offerView respondsToSelector:NSSelectorFromString(@"qv_libraryItem")]
               ? [offerView valueForKey:@"qv_libraryItem"]
               : nil;
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
    switch (decideOfferAction(tweakPreferences().offerSettings(), installed, supportedAppState(state), offerSender)) {
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
        submitToStore(purchasesForStoreIdentifier(toNSString(itemIdentifier), version ? toNSString(*version) : nil,
                                                  installed ? YES : NO));
    };
    item.installedVersion = [itemIdentifier] {
        NSNumber *storeIdentifier = @([toNSString(itemIdentifier) longLongValue]);
        return versionIdentifierForAppWithID(applicationProxyFacts(applicationProxyForItemID(storeIdentifier)));
    };
    [QVUIKitHelper
        downgradeAlertWithState:itemState
                     completion:^(int answer) {
                       guarded([&] { handleOfferAnswer(answer, item, PendingDowngrades::shared(), downgradeFlows()); });
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
        if (!tweakPreferences().offerSettings().enableDowngradeOptions) {
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
        if (!tweakPreferences().offerSettings().enableDowngradeOptions || libraryItem == nil) {
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

MethodImplementation origPageViewDidAppear = nullptr;

void storePageViewDidAppear(id self, SEL _cmd, BOOL animated) {
    callable<void (*)(id, SEL, BOOL)>(origPageViewDidAppear)(self, _cmd, animated);
    guarded([&] {
        Class offerViewClass = objc_getClass("SKUIOfferView");
        UIViewController *page = [self isKindOfClass:UIViewController.class] ? self : nil;
        UIView *offerView = offerViewClass != nil ? [page.view qv_firstSubviewOfClass:offerViewClass
                                                                     maxDeepnessLevel:kOfferViewSearchDepth]
                                                  : nil;
        id libraryItem = libraryItemOf(offerView);
        TweakPreferences &preferences = tweakPreferences();
        if (libraryItem == nil || preferences.holdHintShown()) {
            return;
        }
        id itemState = itemStateForIdentifier(valueOrNil(libraryItem, @"storeItemIdentifier"));
        if (!shouldShowHoldHint(false, preferences.offerSettings().longPressToShowDowngradeOptions,
                                installedAppState(stateValueOf(itemState)))) {
            return;
        }
        NSString *text = [NSBundle.mainBundle localizedStringForKey:toNSString(kHoldHintKey) value:@"" table:nil];
        const CGRect frame = offerView.frame;
        const Point touch = holdHintTouchPoint({frame.origin.x, frame.origin.y, frame.size.width, frame.size.height},
                                               page.navigationController.navigationBar.frame.size.height,
                                               UIApplication.sharedApplication.statusBarFrame.size.height);
        const CGPoint centre = CGPointMake(CGRectGetMidX(page.view.bounds), CGRectGetMidY(page.view.bounds));
        ui().showGestureHint(toStdStringOrEmpty(text), {centre.x, centre.y}, touch);
        preferences.markHoldHintShown();
    });
}

constexpr std::array kBindings{
    replacement<HookBody::CellLayoutOfferConfirm, cellLayoutOfferConfirm<origCellConfirm>>(origCellConfirm),
    replacement<HookBody::BrowseCellLayoutOfferConfirm, cellLayoutOfferConfirm<origBrowseCellConfirm>>(
        origBrowseCellConfirm),
    replacement<HookBody::OfferViewButtonAction, offerViewButtonAction>(origOfferViewAction),
    replacement<HookBody::StorePageViewDidAppear, storePageViewDidAppear>(origPageViewDidAppear),
};
static_assert(bindsExactly(kBindings, kOfferConfirmBodies));

} // namespace

void bindOfferConfirmBodies(HookBodies &bodies) {
    bodies.bind(kBindings);
}

} // namespace qv::darwin
