// Bodies the product header cell gets for the available-tweaks page.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "store/available_tweaks.h"

#import <UIKit/UIKit.h>

#include <array>

@interface UIResponder (QVStoreResponderSearch)
- (UIResponder *)qv_firstResponderOfClass:(Class)cls maxDeepnessLevel:(NSInteger)maxDepth;
@end

namespace qv::darwin {
namespace {

constexpr NSInteger kDocumentContainerSearchDepth = 10;

void lockupCellDisplayTweaks(id /*self*/, SEL /*_cmd*/, NSString *bundleIdentifier) {
    guarded([&] { displayTweaksController(ui(), toStdStringOrEmpty(bundleIdentifier)); });
}

// Only a cell on a product screen knows its app: the screen's document container holds the one item shown.
void lockupCellShowAvailableTweaks(id self, SEL /*_cmd*/) {
    guarded([&] {
        Class containerClass = objc_getClass("SKUIDocumentContainerViewController");
        if (containerClass == nil || ![self isKindOfClass:UIResponder.class]) {
            return;
        }
        UIResponder *container =
            [static_cast<UIResponder *>(self) qv_firstResponderOfClass:containerClass
                                                      maxDeepnessLevel:kDocumentContainerSearchDepth];
        if (container == nil) {
            return;
        }
        id items = [container valueForKeyPath:@"_personalizationItems"];
        id item = [items isKindOfClass:NSSet.class] ? static_cast<NSSet *>(items).anyObject : nil;
        id storeIdentifier = [item respondsToSelector:NSSelectorFromString(@"storeItemIdentifier")]
                                 ? [item valueForKey:@"storeItemIdentifier"]
                                 : nil;
        showAvailableTweaks(ui(), bundleIdentifierLookup(), textForm(storeIdentifier).value_or("(null)"));
    });
}

QV_HOOK_BODIES std::array kBindings{
    addition<rowOf("SKUIProductLockupCollectionViewCell", "displayTweaksControllerWithBundleId:"),
             lockupCellDisplayTweaks>(),
    addition<rowOf("SKUIProductLockupCollectionViewCell", "showAvailableTweaks"), lockupCellShowAvailableTweaks>(),
};

} // namespace

} // namespace qv::darwin
