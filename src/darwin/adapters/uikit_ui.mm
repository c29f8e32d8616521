// The Ui port's entry points: which controller presents, screens in navigation controllers, delays.
#include "darwin/adapters/uikit_ui.h"

#include "darwin/core/guard.h"
#include "darwin/core/strings.h"
#include "darwin/downgrade/versions_screen.h"
#include "darwin/settings/settings_screen.h"
#include "darwin/updates/blocked_updates_screen.h"

#include <algorithm>

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

bool UikitUi::isTablet() const {
    UIDevice *device = UIDevice.currentDevice;
    return [device respondsToSelector:@selector(userInterfaceIdiom)] &&
           device.userInterfaceIdiom == UIUserInterfaceIdiomPad;
}

void UikitUi::presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer) {
    guarded([&] {
        switch (dialog.form) {
        case DialogForm::Alert:
        case DialogForm::ActionSheet:
            presentAlertController(dialog, std::move(answer));
            return;
        case DialogForm::LegacyActionSheet:
            showLegacyActionSheet(dialog, std::move(answer));
            return;
        case DialogForm::LegacyAlertView:
            showLegacyAlertView(dialog, std::move(answer));
            return;
        }
    });
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
    guarded([&] {
        UIViewController *root = screenController(screen);
        if (root == nil) {
            return;
        }
        UINavigationController *navigation = [[UINavigationController alloc] initWithRootViewController:root];
        recordScreen(*screen, navigation);
        [presentingController(presenter) presentViewController:navigation animated:YES completion:nil];
    });
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
        [topMostController() presentViewController:makeBrowser(toNSString(address)) animated:YES completion:nil];
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
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, nanoseconds), dispatch_get_main_queue(), ^{
      guarded([&] { (*shared)(); });
    });
}

} // namespace qv::darwin
