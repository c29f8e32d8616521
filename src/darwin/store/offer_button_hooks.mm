// Bodies that give the store's offer buttons a long press: the older store's button fires its own store action,
// the redesigned store's button opens the prompt.
#include "darwin/core/guard.h"
#include "darwin/core/hook_bodies.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/uikit_helper.h"
#include "downgrade/offer_decisions.h"

#import <UIKit/UIKit.h>

#include <array>

namespace qv::darwin {
namespace {

// The recogniser is attached under the getter's selector, which is unique per process.
const void *longPressKey() {
    return sel_registerName("longPressGestureQV");
}

id longPressGesture(id self, SEL /*_cmd*/) {
    return objc_getAssociatedObject(self, longPressKey());
}

void setLongPressGesture(id self, SEL /*_cmd*/, id recogniser) {
    objc_setAssociatedObject(self, longPressKey(), recogniser, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

// A button gets one recogniser, the first one asked for.
void attachLongPressIfMissing(id button, id target, SEL action) {
    guarded([&] {
        if (![button isKindOfClass:UIView.class] || longPressGesture(button, nullptr) != nil) {
            return;
        }
        UILongPressGestureRecognizer *recogniser = [[UILongPressGestureRecognizer alloc] initWithTarget:target
                                                                                                 action:action];
        setLongPressGesture(button, nullptr, recogniser);
        recogniser.delegate = static_cast<id<UIGestureRecognizerDelegate>>(button);
        recogniser.delaysTouchesBegan = YES;
        [static_cast<UIView *>(button) addGestureRecognizer:recogniser];
    });
}

bool began(id recogniser) {
    return [recogniser isKindOfClass:UIGestureRecognizer.class] &&
           static_cast<UIGestureRecognizer *>(recogniser).state == kGestureStateBegan;
}

MethodImplementation origAddTarget = nullptr;

void offerButtonAddTarget(id self, SEL _cmd, id target, SEL action, UIControlEvents events) {
    callable<void (*)(id, SEL, id, SEL, UIControlEvents)>(origAddTarget)(self, _cmd, target, action, events);
    if (action != nullptr && actionAttachesLongPress(toStdStringOrEmpty(NSStringFromSelector(action)))) {
        attachLongPressIfMissing(self, target, action);
    }
}

void offerButtonDidLongPress(id self, SEL /*_cmd*/, id recogniser) {
    guarded([&] {
        if (began(recogniser) && [self isKindOfClass:UIControl.class]) {
            [static_cast<UIControl *>(self) sendActionsForControlEvents:UIControlEventTouchUpInside];
        }
    });
}

void modernOfferButtonDidLongPress(id self, SEL /*_cmd*/, id recogniser) {
    guarded([&] {
        if (!began(recogniser)) {
            return;
        }
        id presenter =
            [self respondsToSelector:NSSelectorFromString(@"presenter")] ? [self valueForKey:@"presenter"] : nil;
        [QVUIKitHelper offerButtonTappedFromController:presenter completion:nil];
    });
}

void attachModernLongPress(id button) {
    attachLongPressIfMissing(button, button, NSSelectorFromString(@"buttonDidLongPress:"));
}

MethodImplementation origLayoutSubviews = nullptr;
MethodImplementation origInitWithCoder = nullptr;
MethodImplementation origInitWithFrame = nullptr;

void modernOfferButtonLayoutSubviews(id self, SEL _cmd) {
    callable<void (*)(id, SEL)>(origLayoutSubviews)(self, _cmd);
    attachModernLongPress(self);
}

typedef id (*InitWithCoderFunction)(QV_CONSUMED_SELF, SEL, id) QV_RETURNS_RETAINED;
typedef id (*InitWithFrameFunction)(QV_CONSUMED_SELF, SEL, CGRect) QV_RETURNS_RETAINED;

QV_RETURNS_RETAINED id modernOfferButtonInitWithCoder(QV_CONSUMED_SELF self, SEL _cmd, id coder) {
    id button = callable<InitWithCoderFunction>(origInitWithCoder)(self, _cmd, coder);
    attachModernLongPress(button);
    return button;
}

QV_RETURNS_RETAINED id modernOfferButtonInitWithFrame(QV_CONSUMED_SELF self, SEL _cmd, CGRect frame) {
    id button = callable<InitWithFrameFunction>(origInitWithFrame)(self, _cmd, frame);
    attachModernLongPress(button);
    return button;
}

QV_HOOK_BODIES std::array kBindings{
    replacement<rowOf("SKUIItemOfferButton", "addTarget:action:forControlEvents:"), offerButtonAddTarget>(
        origAddTarget),
    addition<rowOf("SKUIItemOfferButton", "longPressGestureQV"), longPressGesture>(),
    addition<rowOf("SKUIItemOfferButton", "setLongPressGestureQV:"), setLongPressGesture>(),
    addition<rowOf("SKUIItemOfferButton", "buttonDidLongPress:"), offerButtonDidLongPress>(),
    addition<rowOf("AppStore.OfferButton", "longPressGestureQV"), longPressGesture>(),
    addition<rowOf("AppStore.OfferButton", "setLongPressGestureQV:"), setLongPressGesture>(),
    addition<rowOf("AppStore.OfferButton", "buttonDidLongPress:"), modernOfferButtonDidLongPress>(),
    replacement<rowOf("AppStore.OfferButton", "layoutSubviews"), modernOfferButtonLayoutSubviews>(origLayoutSubviews),
    replacement<rowOf("AppStore.OfferButton", "initWithCoder:"), modernOfferButtonInitWithCoder>(origInitWithCoder),
    replacement<rowOf("AppStore.OfferButton", "initWithFrame:"), modernOfferButtonInitWithFrame>(origInitWithFrame),
};

} // namespace

} // namespace qv::darwin
