// The settings button on the store's updates and account screens, and the messages their hook bodies send.
#include "darwin/updates/updates_screens.h"

#include "darwin/core/guard.h"
#include "darwin/core/startup.h"
#include "darwin/core/strings.h"
#include "darwin/service/resources.h"
#include "updates/blocked_updates.h"

#import <objc/message.h>

namespace qv::darwin {
namespace {

constexpr std::int64_t kSecondPassDelay = NSEC_PER_SEC;

UIBarButtonItem *settingsButton(UIViewController *controller) {
    return [[UIBarButtonItem alloc] initWithImage:[UIImage qv_imageNamed:@"settings"]
                                            style:UIBarButtonItemStylePlain
                                           target:controller
                                           action:NSSelectorFromString(@"showSettings:")];
}

} // namespace

void sendIfAnswered(id object, NSString *selector) {
    SEL message = NSSelectorFromString(selector);
    if ([object respondsToSelector:message]) {
        reinterpret_cast<void (*)(id, SEL)>(objc_msgSend)(object, message);
    }
}

void putSettingsButtonsAgain(id controller) {
    guarded([&] { sendIfAnswered(controller, @"setQVLeftBarButtons"); });
}

id answerIfAnswered(id object, NSString *selector) {
    SEL message = NSSelectorFromString(selector);
    if (![object respondsToSelector:message]) {
        return nil;
    }
    return reinterpret_cast<id (*)(id, SEL)>(objc_msgSend)(object, message);
}

void observeUpdatesReload(id controller, SEL selector) {
    [NSNotificationCenter.defaultCenter addObserver:controller
                                           selector:selector
                                               name:toNSString(kReloadUpdatesNotification)
                                             object:nil];
}

void putSettingsButtons(UIViewController *controller, bool onNavigationController) {
    if (![controller isKindOfClass:UIViewController.class]) {
        return;
    }
    controller.navigationItem.leftBarButtonItem = settingsButton(controller);
    __weak UIViewController *weakController = controller;
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, kSecondPassDelay), dispatch_get_main_queue(), ^{
      guarded([&] {
          UIViewController *later = weakController;
          if (later == nil) {
              return;
          }
          later.navigationItem.leftBarButtonItem = settingsButton(later);
      });
    });
    if (onNavigationController) {
        controller.navigationController.navigationItem.leftBarButtonItem = settingsButton(controller);
    }
}

void showSettingsScreen() {
    ui().presentScreen(settingsForm(), Presenter::TopMost);
}

} // namespace qv::darwin
