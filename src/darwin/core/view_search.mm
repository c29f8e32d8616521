// View-tree and responder-chain search categories, and the older store's offer-view and document-container bodies.
#include "core/view_search.h"
#include "core/library_item.h"
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/strings.h"

#import <UIKit/UIKit.h>

#include <array>
#include <vector>

namespace {

struct SubviewTree {
    using Node = UIView *;
    using Class = ::Class;
    std::vector<UIView *> children(UIView *view) const {
        std::vector<UIView *> subviews;
        for (UIView *subview in view.subviews) {
            subviews.push_back(subview);
        }
        return subviews;
    }
    bool isKind(UIView *view, ::Class cls) const { return [view isKindOfClass:cls]; }
};

struct ResponderChain {
    using Node = UIResponder *;
    using Class = ::Class;
    UIResponder *nextResponder(UIResponder *responder) const { return responder.nextResponder; }
    bool isKind(UIResponder *responder, ::Class cls) const { return [responder isKindOfClass:cls]; }
    bool isViewController(UIResponder *responder) const { return [responder isKindOfClass:UIViewController.class]; }
    bool isView(UIResponder *responder) const { return [responder isKindOfClass:UIView.class]; }
};

} // namespace

@implementation UIView (QVSubviewSearch)

- (UIView *)qv_firstSubviewOfClass:(Class)cls {
    return [self qv_firstSubviewOfClass:cls maxDeepnessLevel:qv::kDefaultSearchDepth];
}

- (UIView *)qv_firstSubviewOfClass:(Class)cls maxDeepnessLevel:(NSInteger)maxDepth {
    SubviewTree tree;
    return qv::firstSubviewOfClass(tree, self, cls, maxDepth);
}

- (UIViewController *)firstAvailableUIViewController {
    return [self traverseResponderChainForUIViewController];
}

- (UIViewController *)traverseResponderChainForUIViewController {
    ResponderChain chain;
    return static_cast<UIViewController *>(qv::nearestViewController(chain, self));
}

@end

@implementation UIResponder (QVResponderSearch)

- (UIResponder *)qv_firstResponderOfClass:(Class)cls {
    return [self qv_firstResponderOfClass:cls maxDeepnessLevel:qv::kDefaultSearchDepth];
}

- (UIResponder *)qv_firstResponderOfClass:(Class)cls maxDeepnessLevel:(NSInteger)maxDepth {
    ResponderChain chain;
    return qv::firstResponderOfClass(chain, self, cls, maxDepth);
}

@end

namespace qv::darwin {
namespace {

// The older store's objects around an offer view, reached by class name and by key.
struct OfferViewSurroundings {
    using Object = id;

    id documentContainerAbove(id view, std::int64_t depth) const {
        Class container = objc_getClass("SKUIDocumentContainerViewController");
        if (container == nil || ![view isKindOfClass:UIResponder.class]) {
            return nil;
        }
        return [static_cast<UIResponder *>(view) qv_firstResponderOfClass:container maxDeepnessLevel:depth];
    }
    id delegateOf(id view) const {
        return [view respondsToSelector:@selector(delegate)] ? [view valueForKey:@"delegate"] : nil;
    }
    OfferDelegateKind delegateKind(id delegate) const {
        Class lockupView = objc_getClass("SKUIHorizontalLockupView");
        Class lockupCell = objc_getClass("SKUIProductLockupCollectionViewCell");
        if (lockupView != nil && [delegate isKindOfClass:lockupView]) {
            return OfferDelegateKind::HorizontalLockupView;
        }
        if (lockupCell != nil && [delegate isKindOfClass:lockupCell]) {
            return OfferDelegateKind::ProductLockupCell;
        }
        return OfferDelegateKind::Other;
    }
    id valueForKey(id object, std::string_view key) const { return [object valueForKeyPath:toNSString(key)]; }
    id firstPersonalizationItem(id lockup) const {
        SEL items = NSSelectorFromString(@"personalizationLibraryItems");
        if (![lockup respondsToSelector:items]) {
            return nil;
        }
        id set = [lockup valueForKey:@"personalizationLibraryItems"];
        return [set isKindOfClass:NSSet.class] ? static_cast<NSSet *>(set).allObjects.firstObject : nil;
    }
    id anyMember(id set) const { return [set isKindOfClass:NSSet.class] ? static_cast<NSSet *>(set).anyObject : nil; }
};

id offerViewLibraryItem(id self, SEL /*_cmd*/) {
    id item = nil;
    guarded([&] {
        OfferViewSurroundings store;
        item = libraryItemForOfferView(store, self);
    });
    return item;
}

// Reading a key the container lacks answers nil instead of raising the store's undefined-key exception.
id documentContainerUndefinedKey(id /*self*/, SEL /*_cmd*/, NSString * /*key*/) {
    return nil;
}

QV_HOOK_BODIES std::array kBindings{
    addition<rowOf("SKUIOfferView", "qv_libraryItem"), offerViewLibraryItem>(),
    addition<rowOf("SKUIDocumentContainerViewController", "valueForUndefinedKey:"), documentContainerUndefinedKey>(),
};

} // namespace

} // namespace qv::darwin
