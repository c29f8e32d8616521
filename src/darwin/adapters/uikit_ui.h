// The phone's Ui port: UIKit dialogs, the screens drawn from view models, overlays, the browser, delayed tasks.
#pragma once

#include "platform/ui.h"

#import <UIKit/UIKit.h>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace qv::darwin {

// Draws with UIKit, so every drawing call must come on the main queue: the library reaches it only through
// MainQueueUi, which hops there. The two questions may be asked from any thread.
class UikitUi final : public Ui {
  public:
    bool hasAlertControllers() const override;
    bool isTablet() const override;
    void presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer,
                       std::function<void()> notShown) override;
    void presentScreen(std::shared_ptr<ScreenModel> screen, Presenter presenter) override;
    void dismissScreen(const ScreenModel &screen) override;
    // Onto the navigation controller on top; without one the screen is presented in a navigation controller.
    void pushScreen(std::shared_ptr<ScreenModel> screen) override;
    void showProgress(const std::string &text) override;
    void dismissProgress() override;
    void openBrowser(const std::string &address) override;
    void showGestureHint(const std::string &text, Point labelPoint, Point touchPoint) override;
    void afterDelay(std::chrono::milliseconds delay, std::function<void()> task) override;

    // Records the controller that shows a screen, so that the model can take it away; a screen that an owner
    // presented by itself records itself when it appears.
    void recordScreen(const ScreenModel &screen, UIViewController *controller);

  private:
    // The navigation controller each shown screen sits in; entries whose controller is gone are dropped.
    std::vector<std::pair<const ScreenModel *, __weak UIViewController *>> screens_;
    UIView *progress_ = nil;
};

// What the adapter's files share. All of it runs on the main thread.
UIWindow *keyWindow();
UIViewController *topMostController();
UIViewController *presentingController(Presenter presenter);
// Whether a controller can present now: it exists, sits in a window, presents nothing else and is not coming or
// going. UIKit quietly drops a presentation from any other controller.
bool canPresentFrom(UIViewController *presenter);
// Lets the screen's model know when the user swipes its sheet away, which runs none of the screen's own buttons.
void watchUserDismissal(UIViewController *presented, const std::shared_ptr<ScreenModel> &screen);
// The controller that draws the screen's model; nil for a kind the phone does not draw.
UIViewController *screenController(const std::shared_ptr<ScreenModel> &screen);
// A button title through the host's own translations: the English title is the key, "" the default value.
NSString *localizedTitle(const std::string &englishTitle);
NSString *messageOf(const Dialog &dialog);
// The key under which a dialog keeps the helper object that must live as long as it does.
const void *dialogHelperKey();

// Each returns false, having shown nothing, when there is nothing to present from.
bool presentAlertController(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer);
bool showLegacyActionSheet(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer);
bool showLegacyAlertView(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer);

UIView *makeProgressOverlay(const std::string &text);
UIView *makeGestureHint(const std::string &text, CGPoint labelPoint, CGPoint touchPoint);
UIViewController *makeBrowser(NSString *address);

} // namespace qv::darwin
