// Port: the user interface the flows drive: dialogs, screens drawn from view models, overlays, the web browser.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qv {

enum class ButtonRole { Default, Cancel };

struct UiButton {
    std::string title; // English; the alert-controller forms pass it through the host's localisation
    ButtonRole role = ButtonRole::Default;
    friend bool operator==(const UiButton &, const UiButton &) = default;
};

// How a dialog is drawn. The legacy forms serve systems without alert controllers and show titles unlocalised.
enum class DialogForm {
    Alert,             // alert controller, centred alert style
    ActionSheet,       // alert controller, action-sheet style
    LegacyActionSheet, // action sheet shown in the key window
    LegacyAlertView,   // alert view
};

// Which controller presents the dialog or screen.
enum class Presenter {
    KeyWindowRoot, // the key window's root view controller
    TopMost,       // the top-most presented view controller
    Screen,        // the screen that asks (the versions list asks for its identifier dialog)
};

struct TextField {
    std::string placeholder;
    // The confirming button stays disabled while the field is empty.
    bool confirmNeedsText = false;
};

struct Dialog {
    std::string title;
    std::optional<std::string> message;
    DialogForm form = DialogForm::Alert;
    Presenter presenter = Presenter::TopMost;
    std::vector<UiButton> buttons; // in the order shown
    std::optional<TextField> textField;
};

// The button the user chose (its index in Dialog::buttons) and the text field's text as it stood.
struct DialogAnswer {
    std::size_t button = 0;
    std::string text;
};

// A screen drawn from a view model; the adapter picks its drawing by kind.
enum class ScreenKind { VersionsList, SettingsForm, BlockedUpdates };

class ScreenModel {
  public:
    ScreenModel() = default;
    ScreenModel(const ScreenModel &) = delete;
    ScreenModel &operator=(const ScreenModel &) = delete;
    virtual ~ScreenModel() = default;
    virtual ScreenKind kind() const = 0;

    // The screen could not be shown (nothing to present it from, or that controller was busy).
    virtual void notShown() {}
    // The user took the screen away by a gesture of the system's (a sheet swiped down), not by one of its buttons.
    virtual void dismissedByUser() {}
};

struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point &, const Point &) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    friend bool operator==(const Rect &, const Rect &) = default;
};

// Every call may come from any thread: an adapter that draws with a toolkit bound to one thread hops there itself,
// so no caller has to. Answers, notShown and delayed tasks always run on the main queue.
class Ui {
  public:
    Ui() = default;
    Ui(const Ui &) = delete;
    Ui &operator=(const Ui &) = delete;
    virtual ~Ui() = default;

    // Whether the system has alert controllers; without them the legacy dialog forms are used.
    virtual bool hasAlertControllers() const = 0;
    // Whether the device's interface idiom is the tablet's; false when the idiom cannot be asked.
    virtual bool isTablet() const = 0;

    // Shows the dialog; answer runs once the user has chosen a button. When the dialog cannot be shown (nothing to
    // present it from, or that controller is busy), notShown runs instead, so the caller can go on without it.
    virtual void presentDialog(const Dialog &dialog, std::function<void(const DialogAnswer &)> answer,
                               std::function<void()> notShown) = 0;

    // Presents the screen modally inside a navigation controller of its own, and takes it away again. A screen
    // that cannot be shown is told so (ScreenModel::notShown).
    virtual void presentScreen(std::shared_ptr<ScreenModel> screen, Presenter presenter) = 0;
    virtual void dismissScreen(const ScreenModel &screen) = 0;
    // Pushes the screen onto the navigation controller of the screen that asks. Adapters without navigation
    // present it instead.
    virtual void pushScreen(std::shared_ptr<ScreenModel> screen) {
        presentScreen(std::move(screen), Presenter::Screen);
    }

    // A dark overlay with a text label over the key window, and its removal.
    virtual void showProgress(const std::string &text) = 0;
    virtual void dismissProgress() = 0;

    // The in-app web browser, presented from the top-most controller, then loading the address.
    virtual void openBrowser(const std::string &address) = 0;

    // The one-time hint: a label at one point and an animated press at another, removed when dismissed.
    virtual void showGestureHint(const std::string &text, Point labelPoint, Point touchPoint) = 0;

    // Runs the task on the main queue after the delay (the legacy sheet answers once its animation is over).
    virtual void afterDelay(std::chrono::milliseconds delay, std::function<void()> task) = 0;
};

} // namespace qv
