// The Ui port's entry points: which controller presents, screens in navigation controllers, delays.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/versions_screen.h"
#include "darwin/settings/settings_screen.h"
#include "darwin/updates/blocked_updates_screen.h"

#import <objc/runtime.h>

#include <sys/sysctl.h>

#include <algorithm>
#include <atomic>
#include <string>

// Tells a screen's model that the user swiped its sheet away; a presentation controller keeps its delegate weakly,
// so the watcher is attached to the presented controller to live as long.
@interface QVUserDismissalWatcher : NSObject <UIAdaptivePresentationControllerDelegate>
- (instancetype)initWithScreen:(std::weak_ptr<qv::ScreenModel>)screen;
@end

@implementation QVUserDismissalWatcher {
    std::weak_ptr<qv::ScreenModel> _screen;
}

- (instancetype)initWithScreen:(std::weak_ptr<qv::ScreenModel>)screen {
    if ((self = [super init])) {
        _screen = std::move(screen);
    }
    return self;
}

- (void)presentationControllerDidDismiss:(UIPresentationController *)presentationController {
    if (const auto screen = _screen.lock()) {
        qv::darwin::guarded([&] { screen->dismissedByUser(); });
    }
}

@end

namespace qv::darwin {

UIWindow *keyWindow() {
    return UIApplication.sharedApplication.keyWindow;
}

UIViewController *topMostController() {
    UIViewController *top = keyWindow().rootViewController;
    while (top.presentedViewController != nil) {
        top = top.presentedViewController;
    }
    return top;
}

UIViewController *presentingController(Presenter presenter) {
    // A screen that asks is the top-most controller at the time it asks.
    return presenter == Presenter::KeyWindowRoot ? keyWindow().rootViewController : topMostController();
}

bool canPresentFrom(UIViewController *presenter) {
    return presenter != nil && presenter.viewIfLoaded.window != nil && presenter.presentedViewController == nil &&
           !presenter.isBeingPresented && !presenter.isBeingDismissed;
}

void watchUserDismissal(UIViewController *presented, const std::shared_ptr<ScreenModel> &screen) {
    UIPresentationController *presentation = presented.presentationController;
    if (presentation == nil || presentation.delegate != nil) {
        return;
    }
    QVUserDismissalWatcher *watcher = [[QVUserDismissalWatcher alloc] initWithScreen:screen];
    presentation.delegate = watcher;
    objc_setAssociatedObject(presented, dialogHelperKey(), watcher, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

NSString *localizedTitle(const std::string &englishTitle) {
    return [NSBundle.mainBundle localizedStringForKey:toNSString(englishTitle) value:@"" table:nil];
}

NSString *messageOf(const Dialog &dialog) {
    return dialog.message ? toNSString(*dialog.message) : nil;
}

const void *dialogHelperKey() {
    static const char key = 0;
    return &key;
}

bool UikitUi::hasAlertControllers() const {
    return NSClassFromString(@"UIAlertController") != nil;
}

namespace {

// Asked of the hardware, which any thread may do: the store runs in the tablet idiom exactly on a tablet.
bool hardwareIsTablet() {
    char model[64] = {};
    std::size_t size = sizeof(model) - 1;
    return sysctlbyname("hw.machine", model, &size, nullptr, 0) == 0 && std::string(model).rfind("iPad", 0) == 0;
}

} // namespace

bool UikitUi::isTablet() const {
    // UIDevice belongs to the main thread; what it said there is remembered for callers on other threads.
    static std::atomic<int> answered{-1};
    if (NSThread.isMainThread) {
        UIDevice *device = UIDevice.currentDevice;
        const bool tablet = [device respondsToSelector:@selector(userInterfaceIdiom)] &&
                            device.userInterfaceIdiom == UIUserInterfaceIdiomPad;
        answered = tablet ? 1 : 0;
        return tablet;
    }
    const int known = answered.load();
    return known < 0 ? hardwareIsTablet() : known == 1;
}

void UikitUi::presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer,
                            std::function<void()> notShown) {
    bool shown = false;
    guarded([&] {
        switch (dialog.form) {
        case DialogForm::Alert:
        case DialogForm::ActionSheet:
            shown = presentAlertController(dialog, std::move(answer));
            return;
        case DialogForm::LegacyActionSheet:
            shown = showLegacyActionSheet(dialog, std::move(answer));
            return;
        case DialogForm::LegacyAlertView:
            shown = showLegacyAlertView(dialog, std::move(answer));
            return;
        }
    });
    if (!shown && notShown) {
        guarded([&] { notShown(); });
    }
}

UIViewController *screenController(const std::shared_ptr<ScreenModel> &screen) {
    switch (screen->kind()) {
    case ScreenKind::VersionsList:
        return makeVersionsScreen(std::static_pointer_cast<VersionsListModel>(screen));
    case ScreenKind::SettingsForm:
        return makeSettingsScreen(std::static_pointer_cast<SettingsFormModel>(screen));
    case ScreenKind::BlockedUpdates:
        return makeBlockedUpdatesScreen(std::static_pointer_cast<BlockedListModel>(screen));
    }
    return nil;
}

void UikitUi::presentScreen(std::shared_ptr<ScreenModel> screen, Presenter presenter) {
    bool shown = false;
    guarded([&] {
        UIViewController *from = presentingController(presenter);
        UIViewController *root = canPresentFrom(from) ? screenController(screen) : nil;
        if (root == nil) {
            return;
        }
        UINavigationController *navigation = [[UINavigationController alloc] initWithRootViewController:root];
        recordScreen(*screen, navigation);
        watchUserDismissal(navigation, screen);
        [from presentViewController:navigation animated:YES completion:nil];
        shown = true;
    });
    if (!shown) {
        guarded([&] { screen->notShown(); });
    }
}

void UikitUi::pushScreen(std::shared_ptr<ScreenModel> screen) {
    guarded([&] {
        UIViewController *top = topMostController();
        UINavigationController *navigation = [top isKindOfClass:UINavigationController.class]
                                                 ? static_cast<UINavigationController *>(top)
                                                 : top.navigationController;
        if (navigation == nil) {
            presentScreen(std::move(screen), Presenter::Screen);
            return;
        }
        if (UIViewController *controller = screenController(screen)) {
            [navigation pushViewController:controller animated:YES];
        } else {
            screen->notShown();
        }
    });
}

void UikitUi::recordScreen(const ScreenModel &screen, UIViewController *controller) {
    std::erase_if(screens_, [&](const auto &entry) { return entry.second == nil || entry.first == &screen; });
    screens_.emplace_back(&screen, controller);
}

void UikitUi::dismissScreen(const ScreenModel &screen) {
    guarded([&] {
        const auto shown =
            std::find_if(screens_.begin(), screens_.end(), [&](const auto &entry) { return entry.first == &screen; });
        if (shown == screens_.end()) {
            return;
        }
        UIViewController *navigation = shown->second;
        screens_.erase(shown);
        [navigation dismissViewControllerAnimated:YES completion:nil];
    });
}

void UikitUi::showProgress(const std::string &text) {
    guarded([&] {
        [progress_ removeFromSuperview];
        progress_ = makeProgressOverlay(text);
        UIWindow *window = keyWindow();
        progress_.center = CGPointMake(CGRectGetMidX(window.bounds), CGRectGetMidY(window.bounds));
        [window addSubview:progress_];
    });
}

void UikitUi::dismissProgress() {
    guarded([&] {
        [progress_ removeFromSuperview];
        progress_ = nil;
    });
}

void UikitUi::openBrowser(const std::string &address) {
    guarded([&] {
        UIViewController *from = topMostController();
        if (canPresentFrom(from)) {
            [from presentViewController:makeBrowser(toNSString(address)) animated:YES completion:nil];
        }
    });
}

void UikitUi::showGestureHint(const std::string &text, Point labelPoint, Point touchPoint) {
    guarded([&] {
        UIView *hint =
            makeGestureHint(text, CGPointMake(labelPoint.x, labelPoint.y), CGPointMake(touchPoint.x, touchPoint.y));
        UIWindow *window = keyWindow();
        hint.frame = window.bounds;
        [window addSubview:hint];
    });
}

void UikitUi::afterDelay(std::chrono::milliseconds delay, std::function<void()> task) {
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(delay).count();
    auto shared = std::make_shared<std::function<void()>>(std::move(task));
    // Runs on the main queue whatever thread asked.
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, nanoseconds), dispatch_get_main_queue(), ^{
      guarded([&] { (*shared)(); });
    });
}

} // namespace qv::darwin
