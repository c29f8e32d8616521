// The one-time hint on the older store's product pages that the offer button can be held.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/service/crowdsource_sources.h"
#include "darwin/store/store_items.h"
#include "downgrade/offer_decisions.h"
#include "store/item_state.h"

#import <UIKit/UIKit.h>

#include <array>

@interface UIView (QVStoreObjectSearch)
- (UIView *)qv_firstSubviewOfClass:(Class)cls maxDeepnessLevel:(NSInteger)maxDepth;
@end

namespace qv::darwin {
namespace {

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
        if (libraryItem != nil && crowdsourcesStoreItems(objcRuntime().mainBundleIdentifier())) {
            crowdsourcing().storeItemShown(storeItemOf(libraryItem));
        }
        SettingsModel &preferences = settings();
        if (libraryItem == nil || preferences.value(Setting::HoldToDowngradeTipsShown)) {
            return;
        }
        id itemState = itemStateForIdentifier(valueOrNil(libraryItem, @"storeItemIdentifier"));
        if (!shouldShowHoldHint(false, preferences.value(Setting::LongPressToShowDowngradeOptions),
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
        static_cast<void>(preferences.set(Setting::HoldToDowngradeTipsShown, true));
    });
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("SKUIStorePageSectionsViewController", "viewDidAppear:"), storePageViewDidAppear>(
        origPageViewDidAppear),
};

} // namespace

} // namespace qv::darwin
