// QVUIKitHelper: reads the store objects it is handed and runs the portable prompts and flows with them.
#include "darwin/downgrade/uikit_helper.h"

#include "darwin/adapters/blockable_items.h"
#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/core/value_bridge.h"
#include "darwin/store/phone_store_purchasing.h"
#include "darwin/store/store_items.h"
#include "store/item_state.h"

#import <objc/runtime.h>

namespace {

using qv::darwin::guarded;
using qv::darwin::valueOrNil;

// "Block All Updates": every future update of the app the proxy stands for, then the update screens reload.
void blockAllUpdates(id proxy) {
    qv::darwin::updateBlocker().blockUpdate(qv::darwin::blockableItemOf(proxy), true, true);
}

// The caller's block is answered after this call has returned, so it is kept as a copy. Without a block there is
// no completion, which the flows read as "nothing to continue".
std::function<void(qv::DowngradeChoice)> completionFor(void (^completion)(int)) {
    if (completion == nil) {
        return {};
    }
    void (^kept)(int) = [completion copy];
    return [kept](qv::DowngradeChoice choice) { kept(static_cast<int>(choice)); };
}

} // namespace

@implementation QVUIKitHelper

+ (void)downgradeAlertWithState:(id)state completion:(void (^)(int))completion sourceView:(UIView *)sourceView {
    guarded([&] {
        const std::int32_t stateValue = qv::darwin::stateValueOf(state);
        const bool installedOrUpdatable = qv::installedAppState(stateValue) || qv::updateAvailableAppState(stateValue);
        id itemIdentifier = valueOrNil(state, @"itemIdentifier");
        const qv::Prompt prompt = qv::statePrompt(
            installedOrUpdatable, qv::darwin::applicationProxiesKnowExternalVersions(), qv::darwin::ui());
        qv::PromptHandlers handlers;
        handlers.choice = completionFor(completion);
        handlers.blockAllUpdates = [itemIdentifier] {
            NSNumber *storeIdentifier =
                [itemIdentifier respondsToSelector:@selector(longLongValue)] ? @([itemIdentifier longLongValue]) : nil;
            blockAllUpdates(qv::darwin::applicationProxyForItemID(storeIdentifier));
        };
        qv::presentPrompt(qv::darwin::ui(), prompt, std::move(handlers));
    });
}

+ (void)presentDowngradeAlertWithCompletion:(void (^)(int))completion
                             continueButton:(BOOL)continueButton
                               cancelButton:(BOOL)cancelButton
                          blockUpdateButton:(BOOL)blockUpdateButton
                           showTweaksAction:(BOOL)showTweaksAction
                                     itemID:(NSString *)bundleIdentifier {
    guarded([&] {
        const qv::FlagPromptButtons buttons{continueButton == YES, cancelButton == YES, blockUpdateButton == YES,
                                            showTweaksAction == YES};
        const qv::Prompt prompt =
            qv::flagPrompt(buttons, qv::darwin::settings().value(qv::Setting::DisableUpdateBlocker), qv::darwin::ui());
        qv::PromptHandlers handlers;
        handlers.choice = completionFor(completion);
        handlers.blockAllUpdates = [bundleIdentifier] {
            blockAllUpdates(qv::darwin::applicationProxyForIdentifier(bundleIdentifier));
        };
        handlers.showTweaks = [bundleIdentifier] {
            [QVUIKitHelper displayTweaksControllerWithBundleId:bundleIdentifier];
        };
        qv::presentPrompt(qv::darwin::ui(), prompt, std::move(handlers));
    });
}

+ (void)offerButtonTappedFromController:(UIViewController *)controller completion:(void (^)(int))completion {
    guarded([&] {
        Ivar buttonAction =
            controller != nil ? class_getInstanceVariable(object_getClass(controller), "buttonAction") : nullptr;
        id action = buttonAction != nullptr ? object_getIvar(controller, buttonAction) : nil;
        NSString *bundleIdentifier = valueOrNil(action, @"bundleId");
        qv::OfferButtonTap tap;
        tap.bundleIdentifier = qv::darwin::toStdStringOrEmpty(bundleIdentifier);
        tap.completion = completionFor(completion);
        tap.blockAllUpdates = [bundleIdentifier] {
            blockAllUpdates(qv::darwin::applicationProxyForIdentifier(bundleIdentifier));
        };
        tap.showTweaks = [bundleIdentifier] { [QVUIKitHelper displayTweaksControllerWithBundleId:bundleIdentifier]; };
        qv::offerButtonTapped(qv::darwin::downgradeFlows(), qv::darwin::storePurchasing(),
                              qv::darwin::storeIdentifierLookup(), std::move(tap));
    });
}

+ (void)purchaseInitiatedFromStore:(id)store
                      withPurchase:(NSDictionary *)purchase
                        completion:(void (^)(BOOL, NSDictionary *))completion {
    guarded([&] {
        qv::PurchaseCompletion handBack;
        void (^kept)(BOOL, NSDictionary *) = [completion copy];
        if (kept != nil) {
            // Going on unchanged hands back the very dictionary the store gave; a rewrite changes a copy's buy
            // parameters only, so store objects that have no portable form travel on untouched.
            handBack = [purchase, kept](bool rewritten, const qv::Value &chosen) {
                if (!rewritten) {
                    kept(NO, purchase);
                    return;
                }
                NSMutableDictionary *copy = [purchase mutableCopy] ?: [NSMutableDictionary dictionary];
                NSString *key = qv::darwin::toNSString(qv::kPurchaseBuyParamsKey);
                copy[key] = qv::darwin::objectFromValue(chosen[qv::kPurchaseBuyParamsKey]);
                kept(YES, copy);
            };
        }
        qv::purchaseInitiated(qv::darwin::downgradeFlows(), qv::darwin::valueFromObject(purchase), std::move(handBack));
    });
}

+ (void)displayDowngradeControllerForIdentifier:(NSString *)storeIdentifier
                               bundleIdentifier:(NSString *)bundleIdentifier
                                     completion:(void (^)(int))completion {
    guarded([&] {
        qv::displayDowngradeController(qv::darwin::downgradeFlows(), qv::darwin::storePurchasing(),
                                       qv::darwin::textForm(storeIdentifier).value_or(""),
                                       qv::darwin::toStdStringOrEmpty(bundleIdentifier), completionFor(completion));
    });
}

+ (void)displayTweaksControllerWithBundleId:(NSString *)bundleIdentifier {
    guarded([&] { qv::displayTweaksController(qv::darwin::ui(), qv::darwin::toStdStringOrEmpty(bundleIdentifier)); });
}

@end
